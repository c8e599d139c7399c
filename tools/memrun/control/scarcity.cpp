#include "tools/memrun/control/scarcity.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <vector>

namespace memrun::control {

namespace {

constexpr std::array<int, 3> steps = {80, 90, 95};
constexpr int margin = 10;

}  // namespace

Scarcity::~Scarcity() {
    if (running_ > 0) waitpid(running_, nullptr, WNOHANG);
}

bool Scarcity::is_next_step(int percent) {
    if (percent < step_ - margin) step_ = 0;
    int reached = 0;
    for (const int step : steps)
        if (percent >= step) reached = step;
    if (reached <= step_) return false;
    step_ = reached;
    return true;
}

void Scarcity::run_command(const std::string& output, const MemoryRoom& room) {
    if (command_.empty()) return;
    std::vector<std::string> entries = {
        "KTL_MEM_DIR=" + output,
        "KTL_MEM_SCARCE=" + std::to_string(room.percent) + " % of " + room.limit_name};
    for (char** entry = environ; *entry != nullptr; ++entry) entries.emplace_back(*entry);
    std::vector<char*> environment;
    environment.reserve(entries.size() + 1);
    for (std::string& entry : entries) environment.push_back(entry.data());
    environment.push_back(nullptr);
    std::string shell = "sh";
    std::string option = "-c";
    char* const arguments[] = {shell.data(), option.data(), command_.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", 0, 0);
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    if (posix_spawn(&running_, "/bin/sh", &actions, &attributes, arguments, environment.data()) != 0)
        running_ = 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    command_.clear();
}

}  // namespace memrun::control
