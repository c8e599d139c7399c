#include "tools/memrun/survivors.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "tools/memrun/contract.h"

namespace fs = std::filesystem;

namespace memrun {

namespace {

int number_of(const std::string& folder) {
    int pid = 0;
    const char* const end = folder.data() + folder.size();
    return std::from_chars(folder.data(), end, pid).ptr == end ? pid : 0;
}

// Variables as the kernel gave them to the process; a forked child has those of its parent.
bool has_variable(const fs::path& process, const std::string& entry) {
    std::ifstream file(process / "environ", std::ios::binary);
    const std::string text = '\0' + std::string(std::istreambuf_iterator<char>(file), {});
    return text.find('\0' + entry + '\0') != std::string::npos;
}

std::set<int> processes_with(const std::string& entry) {
    std::set<int> pids;
    std::error_code error;
    for (const fs::directory_entry& process : fs::directory_iterator("/proc", error)) {
        const int pid = number_of(process.path().filename().string());
        if (pid != 0 && has_variable(process.path(), entry)) pids.insert(pid);
    }
    return pids;
}

}  // namespace

std::vector<Survivor> find_survivors(int pid, const std::vector<ProcessNote>& notes) {
    std::set<int> pids = processes_with(std::string(pid_variable) + "=" + std::to_string(pid));
    for (const ProcessNote& note : notes) pids.insert(note.children.begin(), note.children.end());
    std::vector<Survivor> survivors;
    for (const int survivor : pids) {
        std::error_code gone;  // or dead and not yet waited for
        const fs::path executable = fs::read_symlink("/proc/" + std::to_string(survivor) + "/exe", gone);
        if (gone) continue;
        const bool is_tracked = std::ranges::find(notes, survivor, &ProcessNote::pid) != notes.end();
        const bool is_fork = !is_tracked && std::ranges::find(notes, executable.string(),
                                                              &ProcessNote::program) != notes.end();
        survivors.push_back({survivor, executable.filename().string(), is_fork});
    }
    return survivors;
}

}  // namespace memrun
