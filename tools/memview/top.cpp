#include "tools/memview/top.h"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "tools/memview/live_run.h"
#include "tools/memview/top_screen.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

std::string line_of(const LiveLook& look) {
    std::string line = human_bytes(look.bytes) + " in " + grouped(look.blocks) + " blocks, peak " +
                       human_bytes(look.peak) + ", " + human_bytes(look.resident) + " resident, " +
                       grouped(static_cast<std::int64_t>(look.events_per_second)) + " events/s";
    if (!look.sites.empty())
        line += ", top " + human_bytes(look.sites.front().bytes) + " " + look.sites.front().place + " " +
                look.sites.front().function;
    return line;
}

void print_lines(LiveRun& run, std::ostream& out) {
    while (out) {
        out << line_of(run.look()) << std::endl;
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
}

}  // namespace

void watch_run(const std::string& folder, std::ostream& out) {
    LiveRun run(folder);
    const bool is_terminal =
        ::isatty(STDOUT_FILENO) == 1 && ::isatty(STDIN_FILENO) == 1 && TopScreen::is_possible();
    LiveLook first = run.look();
    try {
        if (is_terminal)
            TopScreen(run, first).show();
        else
            print_lines(run, out);
    } catch (const NoLauncher&) {
        out << "the run has ended; its reports are in " << folder << std::endl;
    }
}

}  // namespace memview
