#include "tools/memrun/program.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/memrun/elf_check.h"
#include "tools/memrun/failure.h"
#include "tools/memrun/path_search.h"

namespace memrun {

namespace {

constexpr int most_interpreters = 5;  // the kernel follows no more scripts either

bool is_env(const std::string& path) {
    return std::filesystem::path(path).filename() == "env";
}

// What `env ARGUMENTS...` ends up running: the first argument that is neither an option nor an assignment.
// Empty when there is none.
std::string run_by_env(std::istream& arguments) {
    for (std::string word; arguments >> word;)
        if (!word.starts_with('-') && word.find('=') == std::string::npos) return word;
    return "";
}

// The interpreter that runs a file that is no ELF file. A file without "#!" is given to the shell, as execvp
// does.
std::string interpreter_of(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    if (!line.starts_with("#!")) return "/bin/sh";
    std::istringstream words(line.substr(2));
    std::string interpreter;
    words >> interpreter;
    if (!is_env(interpreter)) return interpreter;
    const std::string run = run_by_env(words);
    return run.empty() ? interpreter : find_in_path(run);
}

bool can_be_read(const std::string& path) {
    return std::ifstream(path).is_open();
}

std::string tracked_executable(const std::string& path) {
    std::string tracked = path;
    for (int i = 0; i < most_interpreters && can_be_read(tracked) && !is_elf(tracked); ++i)
        tracked = find_in_path(interpreter_of(tracked));
    return tracked;
}

// As the kernel names it to the agent, which has no other way to distinguish the program from what it starts.
std::string whole_path(const std::string& path) {
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::canonical(path, error);
    if (error)
        throw Failure(
            status_cannot_run,
            "'" + path + "' cannot be tracked: its whole path is not to be had (" + error.message() + ")");
    return whole.string();
}

}  // namespace

Program find_program(const std::vector<std::string>& command) {
    const std::string path = find_in_path(command.front());
    const std::string tracked = tracked_executable(path);
    const std::string reason = why_not_trackable(tracked);
    if (!reason.empty()) {
        const std::string subject =
            tracked == path ? "'" + path + "'" : "'" + tracked + "', which runs '" + path + "',";
        throw Failure(status_cannot_run, subject + " cannot be tracked: it " + reason);
    }
    return {path, whole_path(tracked)};
}

bool is_trackable(const std::string& path) {
    try {
        return std::filesystem::is_regular_file(path) && why_not_trackable(tracked_executable(path)).empty();
    } catch (const std::exception&) {  // such as an interpreter that is not there
        return false;
    }
}

}  // namespace memrun
