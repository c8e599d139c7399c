#include "tools/memrun/names/package_hint.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>

namespace memrun::names {

namespace {

// What the command writes to standard output; empty when it cannot be run.
std::string output_of(const std::vector<std::string>& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return {};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string text;
    char part[4096];
    for (ssize_t size; error == 0 && ((size = read(ends[0], part, sizeof part)) > 0 || errno == EINTR);)
        if (size > 0)
            text.append(part, static_cast<std::size_t>(size));
        else
            break;
    close(ends[0]);
    if (error == 0) waitpid(pid, nullptr, 0);
    return text;
}

}  // namespace

std::vector<std::string> packages_of(const std::vector<std::string>& paths) {
    std::vector<std::string> command = {"dpkg-query", "--search"};
    for (const std::string& path : paths) {
        command.push_back(path);
        // Packages name files by the folder that they were built for, which is a link today.
        if (path.starts_with("/usr/lib") || path.starts_with("/usr/bin")) command.push_back(path.substr(4));
    }
    std::vector<std::string> packages;
    std::istringstream lines(output_of(command));
    for (std::string line; std::getline(lines, line);) {
        const std::string package = line.substr(0, line.find_first_of(":,"));
        if (line.starts_with("diversion ") || std::ranges::find(packages, package) != packages.end())
            continue;
        packages.push_back(package);
    }
    return packages;
}

}  // namespace memrun::names
