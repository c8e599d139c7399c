#include "tools/memrun/control/status.h"

#include <unistd.h>

#include <filesystem>

#include "tools/memrun/control/memory_room.h"

namespace memrun::control {

namespace {

// From the lowest bit of the tracking word on.
constexpr const char* word_names[] = {"bins",  "bin-tags",   "modules", "lines",
                                      "leaks", "fast-leaks", "aux",     "paths"};

Answer names_of(std::uint32_t word) {
    Answer names = Answer::array();
    for (const char* name : word_names) {
        if ((word & 1) != 0) names.push_back(name);
        word >>= 1;
    }
    return names;
}

double seconds_since(std::uint64_t moment_ms) {
    const std::uint64_t now = now_ms();
    return static_cast<double>(now > moment_ms ? now - moment_ms : 0) / 1000;
}

std::string program_of(pid_t pid) {
    std::error_code is_gone;
    return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", is_gone).string();
}

Answer figures_of(const Process& process) {
    const Page& page = *process.page;
    // A figure that was wished for and is not there yet waits for the next event.
    const bool is_silent = (page.wishes.load() & wishes_figures) != 0;
    return {{"tracking", names_of(page.word)},
            {"events", page.events.load()},
            {"current_bytes", page.current_bytes.load()},
            {"current_blocks", page.current_blocks.load()},
            {"peak_bytes", page.peak_bytes.load()},
            {"tracker_bytes", page.own_bytes.load()},
            {"seconds_since_event", is_silent ? seconds_since(process.figures_wished_ms) : 0.0},
            {"began_anew", page.began_anew_ms.load() != 0}};
}

Answer process_of(const Process& process) {
    Answer answer = {{"pid", process.pid},
                     {"word", process.word},
                     {"program", program_of(process.pid)},
                     {"seconds", seconds_since(process.arrived_ms)},
                     {"resident_bytes", resident_bytes(process.pid)},
                     {"address_space_bytes", address_space_bytes(process.pid)}};
    if (process.page != nullptr && process.page->figures_taken.load(std::memory_order_acquire) != 0)
        answer.update(figures_of(process));
    return answer;
}

}  // namespace

Answer status_of(const Processes& processes, const Desk& desk, const std::string& output) {
    Answer answer = {
        {"ok", true}, {"output", output}, {"launcher", getpid()}, {"processes", Answer::array()}};
    for (const auto& process : processes) answer["processes"].push_back(process_of(*process));
    if (desk.last_checkpoint_ms() != 0)
        answer["seconds_since_checkpoint"] = seconds_since(desk.last_checkpoint_ms());
    const MemoryRoom room = tightest_room(processes);
    if (!room.limit_name.empty())
        answer["memory"] = {{"limit", room.limit_name},
                            {"limit_bytes", room.limit},
                            {"used_bytes", room.used},
                            {"used_percent", room.percent}};
    return answer;
}

}  // namespace memrun::control
