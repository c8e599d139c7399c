#include "tools/memrun/control/memory_room.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>

#include "platform/memory_limits.h"
#include "platform/proc_text.h"

namespace memrun::control {

namespace {

constexpr std::uint64_t least_share = 20;

// The second or first figure of /proc/PID/statm.
std::uint64_t statm_bytes(pid_t pid, int column) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/statm");
    std::uint64_t pages = 0;
    for (int i = 0; i <= column; ++i) file >> pages;
    return file ? pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) : 0;
}

// The last number behind one of the keys, in a file of lines "KEY NUMBER"; 0 when there is none.
std::uint64_t keyed_number(const std::string& path, const char* key, const char* better_key = "") {
    std::ifstream file(path);
    std::string found;
    std::uint64_t number = 0;
    std::uint64_t wanted = 0;
    while (file >> found >> number)
        if (found == key || found == better_key) wanted = number;
    return wanted;
}

// What the kernel takes back before it ends anybody: the cgroup's part of the page cache that nobody used
// lately.
std::uint64_t reclaimable_bytes(const CGROUP_MEMORY& group) {
    return keyed_number(std::string(group.folder) + "/memory.stat", "inactive_file", "total_inactive_file");
}

void consider(MemoryRoom& tightest, const char* name, std::uint64_t used, std::uint64_t limit,
              std::uint64_t held) {
    if (limit == 0 || held < limit / least_share) return;
    const int percent = static_cast<int>(std::min<std::uint64_t>(used / (limit / 100 + 1), 100));
    if (tightest.limit_name.empty() || percent > tightest.percent) tightest = {name, limit, used, percent};
}

void consider_machine(MemoryRoom& tightest, std::uint64_t held) {
    std::array<PROC_FIGURE, 2> figures{{{"MemTotal:"}, {"MemAvailable:"}}};
    PROC_KEY_READER reader(figures);
    std::ifstream file("/proc/meminfo");
    for (std::string line; std::getline(file, line);) reader.feed(line + "\n");
    const auto& [total, available] = figures;
    consider(tightest, "the machine's memory", total.bytes - std::min(total.bytes, available.bytes),
             total.bytes, held);
}

}  // namespace

std::uint64_t resident_bytes(pid_t pid) {
    return statm_bytes(pid, 1);
}

std::uint64_t address_space_bytes(pid_t pid) {
    return statm_bytes(pid, 0);
}

std::uint64_t kills_in_cgroup(const std::string& folder) {
    return std::max(keyed_number(folder + "/memory.events", "oom_kill"),
                    keyed_number(folder + "/memory.oom_control", "oom_kill"));
}

std::uint64_t kills_on_machine() {
    return keyed_number("/proc/vmstat", "oom_kill");
}

std::string limited_cgroup(pid_t pid) {
    CGROUP_MEMORY group;
    return read_cgroup_memory(pid, group) ? group.folder : "";
}

MemoryRoom tightest_room(const Processes& processes) {
    MemoryRoom tightest;
    std::uint64_t held = 0;
    for (const auto& process : processes) held += resident_bytes(process->pid);
    for (const auto& process : processes) {
        CGROUP_MEMORY group;
        if (read_cgroup_memory(process->pid, group))
            consider(tightest, "the cgroup's limit",
                     group.usage - std::min(group.usage, reclaimable_bytes(group)), group.limit, held);
        const std::uint64_t limit = address_space_limit(process->pid);
        const std::uint64_t size = address_space_bytes(process->pid);
        if (limit != no_memory_limit) consider(tightest, "the limit of address space", size, limit, size);
    }
    consider_machine(tightest, held);
    return tightest;
}

}  // namespace memrun::control
