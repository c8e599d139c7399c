#include "platform/memory_limits.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace {

// What one read of a small file gives; empty on failure.
template <std::size_t SIZE>
std::string_view read_text(const char* path, char (&buffer)[SIZE]) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return {};
    ssize_t got = 0;
    do got = read(file, buffer, SIZE);
    while (got < 0 && errno == EINTR);
    close(file);
    return {buffer, got < 0 ? 0 : static_cast<std::size_t>(got)};
}

// A number in a file of its own; "max" and what the first version writes for no limit are no_memory_limit.
std::uint64_t read_number(const char* folder, const char* name, std::uint64_t when_missing) {
    constexpr std::uint64_t first_version_none = std::uint64_t{1} << 62;
    char path[640];
    char buffer[64];
    std::snprintf(path, sizeof path, "%s/%s", folder, name);
    const std::string_view text = read_text(path, buffer);
    if (text.starts_with("max")) return no_memory_limit;
    std::uint64_t value = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) return when_missing;
    return value >= first_version_none ? no_memory_limit : value;
}

// The number behind a key in a file of lines "KEY NUMBER".
std::uint64_t read_keyed_number(const char* folder, const char* name, std::string_view key) {
    char path[640];
    char buffer[1024];
    std::snprintf(path, sizeof path, "%s/%s", folder, name);
    std::string_view text = read_text(path, buffer);
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (!line.starts_with(key) || line.size() <= key.size() || line[key.size()] != ' ') continue;
        std::uint64_t value = 0;
        std::from_chars(line.data() + key.size() + 1, line.data() + line.size(), value);
        return value;
    }
    return 0;
}

struct FILES {
    const char* limit;
    const char* usage;
    const char* events;
};
constexpr FILES first_version = {"memory.limit_in_bytes", "memory.usage_in_bytes", "memory.oom_control"};
constexpr FILES second_version = {"memory.max", "memory.current", "memory.events"};

std::uint64_t room_in(const CGROUP_MEMORY& memory) {
    return memory.limit - std::min(memory.limit, memory.usage);
}

void look_at(const char* folder, const FILES& files, CGROUP_MEMORY& tightest) {
    CGROUP_MEMORY here;
    here.limit = read_number(folder, files.limit, no_memory_limit);
    if (here.limit == no_memory_limit) return;
    here.usage = read_number(folder, files.usage, 0);
    if (tightest.limit != no_memory_limit && room_in(here) >= room_in(tightest)) return;
    here.oom_kills = read_keyed_number(folder, files.events, "oom_kill");
    std::snprintf(here.folder, sizeof here.folder, "%s", folder);
    tightest = here;
}

// "/proc/PID/NAME", or of the calling thread, whose figures remain when the first thread has ended.
template <std::size_t SIZE>
const char* proc_path(char (&path)[SIZE], std::int32_t process, const char* name) {
    if (process == 0)
        std::snprintf(path, SIZE, "/proc/thread-self/%s", name);
    else
        std::snprintf(path, SIZE, "/proc/%d/%s", process, name);
    return path;
}

}  // namespace

CGROUP_PLACE find_memory_cgroup(std::string_view cgroup_text) {
    CGROUP_PLACE place;
    while (!cgroup_text.empty()) {
        const std::size_t end = std::min(cgroup_text.find('\n'), cgroup_text.size());
        const std::string_view line = cgroup_text.substr(0, end);
        cgroup_text.remove_prefix(std::min(end + 1, cgroup_text.size()));
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
        if (second == std::string_view::npos) continue;
        const std::string_view controllers = line.substr(first + 1, second - first - 1);
        if (controllers == "memory") return {line.substr(second + 1), true};
        if (controllers.empty()) place = {line.substr(second + 1), false};
    }
    return place;
}

bool read_cgroups(const char* root, const CGROUP_PLACE& place, CGROUP_MEMORY& out) {
    char folder[512];
    const int length = std::snprintf(folder, sizeof folder, "%s%.*s", root,
                                     static_cast<int>(place.path.size()), place.path.data());
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof folder) return false;
    out = {};
    // A limit of any group around it holds for it, too. A path from outside a container is not there inside;
    // its root then is.
    for (const std::size_t root_length = std::strlen(root);;) {
        look_at(folder, place.is_first_version ? first_version : second_version, out);
        char* const slash = std::strrchr(folder, '/');
        if (slash == nullptr || static_cast<std::size_t>(slash - folder) < root_length) break;
        *slash = '\0';
    }
    return out.limit != no_memory_limit;
}

bool read_cgroup_memory(std::int32_t process, CGROUP_MEMORY& out) {
    char path[64];
    char text[4096];
    const CGROUP_PLACE place = find_memory_cgroup(read_text(proc_path(path, process, "cgroup"), text));
    if (place.path.empty()) return false;
    return read_cgroups(place.is_first_version ? "/sys/fs/cgroup/memory" : "/sys/fs/cgroup", place, out);
}

std::uint64_t address_space_limit(std::int32_t process) {
    rlimit limit{};
    if (prlimit(process, RLIMIT_AS, nullptr, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return no_memory_limit;
    return limit.rlim_cur;
}
