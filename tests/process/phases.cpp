// Phases, modules and reports of a process that allocates.
#include <dlfcn.h>

#include <chrono>
#include <filesystem>
#include <iostream>

#include "ktl_mem/statistics.h"
#include "tests/bins/on_threads.h"
#include "tests/process/behaviour.h"
#include "tests/process/call_sites.h"
#include "tests/process/module.h"
#include "tests/process/report_sums.h"
#include "tests/tracker/all_calls.h"

namespace {

// The function of a copy of the module under a name of its own.
auto* load_copy(const char* module, const std::string& name) {
    std::filesystem::copy_file(module, name);
    void* const copy = dlopen(("./" + name).c_str(), RTLD_NOW);
    return reinterpret_cast<decltype(&module_block)>(dlsym(copy, "module_block"));
}

// Two modules allocate, each in a bin of one tag, the second of which sees a sample; then the second module
// takes a mebibyte and gives it back, which makes the peak. Nothing else of the main thread is an event.
const BEHAVIOUR use_modules("modules", [](char** arguments) {
    mem_block_thread_tracking();
    mem_reset_tracking_entries();
    decltype(&module_block)
        const modules[] = {load_copy(arguments[0], "libm1.so"), load_copy(arguments[0], "libm2.so")};
    std::uint64_t start = 0, end = 0, peak = 0;
    for (const int i : {0, 1}) {
        mem_open_profile_bin(i == 0 ? "m1" : "m2", "loading");
        mem_unblock_thread_tracking();
        modules[i](8192 << i);
        mem_block_thread_tracking();
        if (i == 1) mem_user_snapshot_tracking_data();
        mem_close_profile_bin("loading", &start, &end, &peak);
    }
    mem_unblock_thread_tracking();
    std::free(modules[1](1 << 20));
    mem_block_thread_tracking();
});

void allocate_with_phases(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    const Meanwhile phases(1, pass_a_phase);
    const Meanwhile flushes(1, flush_and_sample);
    on_threads(8, [end](int) {
        while (std::chrono::steady_clock::now() < end) put_a_block();
    });
}

// Everything at once; and then whether current and cumulative bytes of all reports agree.
const BEHAVIOUR storm("storm", [](char** arguments) {
    mem_block_thread_tracking();
    {
        const Meanwhile resets(1, reset);
        const Meanwhile dumps(1, dump_everything);
        allocate_with_phases(std::chrono::seconds(std::atoi(arguments[0])));
    }
    mem_reset_tracking_entries();
    allocate_with_phases(std::chrono::milliseconds(300));
    const auto current = [](bool (*dump)(std::ostream&)) { return sum_of("Current bytes", dump); };
    const auto cumulative = [](bool (*dump)(std::ostream&)) { return sum_of("Cumulative bytes", dump); };
    // Subsystems leave out a row that has only ever lost bytes, and bins are not reset.
    const std::int64_t of_call_sites = cumulative(mem_dump_tbb_fileline_tracking);
    std::cout << "tags "
              << (current(mem_dump_tbb_fileline_tracking) ==
                  current(mem_dump_tbb_profile_bin_tag_stats_tracking))
              << (of_call_sites == cumulative(mem_dump_tbb_profile_bin_tag_stats_tracking)) << " modules "
              << (of_call_sites == cumulative(mem_dump_tbb_subsystem_tracking)) << " bins "
              << (mem_get_stats().current.bytes == current(mem_dump_tbb_profile_bin_stats_tracking)) << '\n';
});

// A stream whose fourth line, the first row of a report, ends the process.
class LAST_WORDS : public std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize length) override {
        if (++lines == 4) std::exit(5);
        return length;
    }
    int lines = 0;
};

const BEHAVIOUR exit_in_dump("exit_in_dump", [](char** arguments) {
    LAST_WORDS words;
    std::ostream last(&words);
    std::ostringstream other;
    mem_user_snapshot_tracking_data();
    const std::string which = arguments[0];
    if (which == "fileline") mem_dump_tbb_fileline_tracking(last);
    if (which == "subsystem") mem_dump_tbb_subsystem_tracking(last);
    if (which == "modules") mem_dump_tbb_module_tracking(other, last);
    if (which == "tags") mem_dump_tbb_profile_bin_tag_timeline_tracking(other, last);
});

}  // namespace
