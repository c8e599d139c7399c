#include "tools/reports/size_note.h"

#include <filesystem>
#include <fstream>

#include "tools/common/size_note.h"

namespace memview {

namespace fs = std::filesystem;

void find_cut_reports(const std::string& folder, Problems& problems) {
    std::ifstream note(fs::path(folder) / size_note_name);
    std::uintmax_t noted = 0;
    for (std::string name; note >> noted && note.ignore() && std::getline(note, name);) {
        const fs::path path = fs::path(folder) / fs::path(name).filename();
        std::error_code error;
        const std::uintmax_t size = fs::file_size(path, error);
        if (error) {
            problems.add({path.string(), 0, "is missing, though the run has left it"});
        } else if (size < noted) {
            problems.add({path.string(), 0,
                          "is cut: it has " + std::to_string(size) + " of the " + std::to_string(noted) +
                              " bytes that the run has left"});
        }
    }
}

}  // namespace memview
