#include "tools/memrun/agent/orders.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "tools/memrun/contract.h"

namespace memrun::agent {

namespace {

bool is_set(const char* variable) {
    return std::getenv(variable) != nullptr;
}

const char* base_name(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

void read_executable(Orders& orders) {
    const ssize_t size = readlink("/proc/self/exe", orders.program, sizeof orders.program - 1);
    orders.program[size < 0 ? 0 : size] = 0;
}

// The launched program has the plain name; every other process adds its own name and number.
void choose_word(Orders& orders, bool is_launched) {
    if (is_launched)
        std::snprintf(orders.word, sizeof orders.word, "%s", orders.name);
    else
        std::snprintf(orders.word, sizeof orders.word, "%.100s.%.100s.%d", orders.name,
                      base_name(orders.program), static_cast<int>(orders.owner));
}

// Only the first program of the launched process finds which one is to be tracked.
void choose_role(Orders& orders, bool is_launched_process) {
    const char* wanted = std::getenv(program_variable);
    const bool is_wanted = wanted != nullptr && std::strcmp(wanted, orders.program) == 0;
    orders.is_starter = is_launched_process && wanted != nullptr && !is_wanted;
    orders.has_heir = is_launched_process && !orders.follow && !orders.is_starter;
    orders.is_heir = orders.has_heir && !is_wanted;
    choose_word(orders, is_launched_process && (is_wanted || orders.is_heir));
}

}  // namespace

Orders read_orders() {
    Orders orders;
    const char* dir = std::getenv(dir_variable);
    const char* pid = std::getenv(pid_variable);
    if (dir == nullptr || pid == nullptr) return orders;
    orders.given = true;
    orders.owner = getpid();
    orders.follow = is_set(follow_variable);
    orders.forks = is_set(forks_variable);
    orders.log = is_set(log_variable);
    orders.mappings = is_set(mappings_variable);
    std::snprintf(orders.dir, sizeof orders.dir, "%s", dir);
    const char* name = std::getenv(name_variable);
    std::snprintf(orders.name, sizeof orders.name, "%s", name == nullptr ? "vii" : name);
    read_executable(orders);
    choose_role(orders, std::atoi(pid) == orders.owner);
    return orders;
}

void take_over_orders(Orders& orders) {
    orders.owner = getpid();
    orders.has_heir = false;
    orders.is_heir = false;
    choose_word(orders, false);
}

bool is_launchers(std::string_view entry) {
    if (entry.starts_with(saved_prefix)) return false;
    return entry.starts_with(own_prefix) || is_governed(name_of(entry));
}

void restore_environment(bool follow) {
    char** kept = environ;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        if (follow) {
            if (name_of(text) != program_variable) *kept++ = *entry;
        } else if (text.starts_with(saved_prefix)) {
            *kept++ = *entry + saved_prefix.size();
        } else if (!is_launchers(text)) {
            *kept++ = *entry;
        }
    }
    *kept = nullptr;
}

}  // namespace memrun::agent
