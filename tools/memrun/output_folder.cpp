#include "tools/memrun/output_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <vector>

#include "tools/common/size_note.h"
#include "tools/memrun/contract.h"
#include "tools/memrun/failure.h"

namespace fs = std::filesystem;

namespace memrun {

namespace {

std::vector<fs::path> reports_in(const fs::path& folder) {
    std::vector<fs::path> reports;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        if (is_report_name(entry.path().filename().string())) reports.push_back(entry.path());
    return reports;
}

// Reports, and the folder when it holds nothing else.
void remove_reports(const fs::path& folder) {
    std::error_code not_there;
    if (!fs::is_directory(folder, not_there)) return;
    for (const fs::path& report : reports_in(folder)) fs::remove(report);
    fs::remove(folder, not_there);
}

// What orders and checkpoints have left while a run went on.
void remove_kept_reports(const fs::path& folder) {
    std::error_code not_there;
    remove_reports(folder / checkpoint_folder);
    remove_reports(folder / paths_folder);
    for (const fs::directory_entry& mark : fs::directory_iterator(folder / marks_folder, not_there))
        remove_reports(mark.path());
    fs::remove(folder / marks_folder, not_there);
}

void make_room(const fs::path& folder, bool force) {
    const std::vector<fs::path> reports = reports_in(folder);
    if (!reports.empty() && !force)
        throw Failure(status_launcher_fault,
                      "'" + folder.string() + "' holds " + std::to_string(reports.size()) +
                          " reports of an earlier run: name another folder with -o, or "
                          "replace them with --force");
    for (const fs::path& report : reports) fs::remove(report);
    fs::remove(folder / size_note_name);
    if (force) remove_kept_reports(folder);
    fs::remove_all(folder / notes_folder);
}

}  // namespace

FolderClaim::FolderClaim(const std::string& folder) {
    if (folder.empty()) return;
    std::error_code told_when_prepared;
    fs::create_directories(folder, told_when_prepared);
    file_ = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (file_ >= 0 && flock(file_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw Failure(status_launcher_fault, "another ktl_memrun writes its reports to '" + folder +
                                                 "' just now: name another folder with -o");
}

FolderClaim::~FolderClaim() {
    if (file_ >= 0) close(file_);
}

std::string output_path(const Options& options, const std::string& program_name, int pid) {
    const std::string folder =
        options.output.empty() ? "ktl_mem." + program_name + "." + std::to_string(pid) : options.output;
    return fs::absolute(folder).lexically_normal().string();
}

void prepare_output(const std::string& path, bool force) {
    try {
        fs::create_directories(path);
        make_room(path, force);
        fs::create_directory(fs::path(path) / notes_folder);
    } catch (const fs::filesystem_error& error) {
        throw Failure(status_launcher_fault, "reports cannot go to '" + path + "': " +
                                                 error.code().message() + "; name another folder with -o");
    }
}

void discard_output(const std::string& path) {
    std::error_code ignored;
    fs::remove_all(fs::path(path) / notes_folder, ignored);
    fs::remove(path, ignored);
}

void discard_checkpoint(const std::string& path) {
    remove_reports(fs::path(path) / checkpoint_folder);
}

void note_sizes(const std::string& path) {
    std::string sizes;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(path, error)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("mem_tbb_") && is_report_name(name) && name.find('\n') == std::string::npos)
            sizes += std::to_string(entry.file_size(error)) + " " + name + "\n";
    }
    if (!sizes.empty()) std::ofstream(fs::path(path) / size_note_name) << sizes;
}

bool is_report_name(const std::string& file_name) {
    return (file_name.starts_with("mem_tbb_") && file_name.ends_with(".log")) ||
           (file_name.starts_with("mem_allocations.") && file_name.ends_with("log")) ||
           file_name == "veldrin_za_leak_warning.txt";
}

}  // namespace memrun
