// A host with phases: phases_host modules COUNT MODULE | storm SECONDS | forks COUNT | exit_in_dump WHICH
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "ktl_mem/statistics.h"
#include "tests/bins/on_threads.h"
#include "tests/tracker/all_calls.h"

namespace {

// Before any allocation of the program itself: the main thread's events are those that a script unblocks.
__attribute__((constructor(101))) void block_main_thread() {
    mem_block_thread_tracking();
}

using ALLOCATE = void* (*)(std::size_t);

// The function of a copy of the module under a name of its own.
ALLOCATE load_copy(const std::string& module, int number) {
    std::filesystem::create_directory("modules");
    const std::string copy = "modules/libm" + std::to_string(number) + ".so";
    std::filesystem::copy_file(module, copy);
    void* const handle = dlopen(copy.c_str(), RTLD_NOW);
    return handle != nullptr ? reinterpret_cast<ALLOCATE>(dlsym(handle, "allocate_in_module")) : nullptr;
}

struct TRACKED_SCOPE {
    TRACKED_SCOPE() { mem_unblock_thread_tracking(); }
    ~TRACKED_SCOPE() { mem_block_thread_tracking(); }
};

// Each module allocates as many times 8 KiB as its number tells, in a bin "m<number>" of one tag, the last of
// which sees a sample; then the last module takes a mebibyte and gives it back, which makes the peak.
void use_modules(int count, const std::string& module) {
    mem_reset_tracking_entries();
    std::vector<ALLOCATE> modules;
    for (int number = 1; number <= count; ++number) modules.push_back(load_copy(module, number));
    for (int number = 1; number <= count; ++number) {
        mem_open_profile_bin("m" + std::to_string(number), "loading");
        {
            const TRACKED_SCOPE tracked;
            modules[number - 1](number * std::size_t{8192});
        }
        if (number == count) mem_user_snapshot_tracking_data();
        std::uint64_t start = 0, end = 0, peak = 0;
        mem_close_profile_bin("loading", &start, &end, &peak);
    }
    const TRACKED_SCOPE tracked;
    std::free(modules.back()(1 << 20));
}

// Blocks change hands: a thread frees what another one has put into the place.
class Exchange {
  public:
    void put_block(std::uint64_t number) {
        const std::size_t bytes = 16 + number % 97 * 16;
        std::free(places[number * 7919 % places.size()].exchange(std::malloc(bytes)));
    }
    ~Exchange() {
        for (auto& place : places) std::free(place);
    }

  private:
    std::array<std::atomic<void*>, 512> places{};
};

void switch_the_word() {
    mem_disable_tracking(MEM_TRACKING_AUXILIARY_TIMELINE);
    mem_enable_tracking(MEM_TRACKING_AUXILIARY_TIMELINE);
    pause_storm();
}

void allocate_with_phases(Exchange& exchange, std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    const Meanwhile phases(1, pass_a_phase);
    const Meanwhile flushes(1, flush_and_sample);
    on_threads(8, [&](int) {
        for (std::uint64_t i = 0; std::chrono::steady_clock::now() < end; ++i) exchange.put_block(i);
    });
}

// The sum of one column of a report; a row for each call site, module or tag.
long long sum_of_column(bool (*dump)(std::ostream&), int column) {
    std::stringstream report;
    dump(report);
    std::string line;
    for (int head = 0; head < 3; ++head) std::getline(report, line);
    long long sum = 0;
    while (std::getline(report, line) && !line.starts_with("Time spent")) {
        std::istringstream fields(line);
        std::string field;
        for (int i = 0; i <= column; ++i) std::getline(fields, field, '\t');
        sum += std::stoll(field);
    }
    return sum;
}

void storm(int seconds) {
    Exchange exchange;
    {
        const Meanwhile resets(1, reset);
        const Meanwhile dumps(1, dump_everything);
        allocate_with_phases(exchange, std::chrono::seconds(seconds));
    }
    mem_reset_tracking_entries();
    allocate_with_phases(exchange, std::chrono::milliseconds(300));
    // Current and cumulative bytes. Subsystems leave out a row that has only ever lost bytes.
    std::printf("%d %d %d\n",
                sum_of_column(mem_dump_tbb_fileline_tracking, 1) ==
                    sum_of_column(mem_dump_tbb_profile_bin_tag_stats_tracking, 4),
                sum_of_column(mem_dump_tbb_fileline_tracking, 4) ==
                    sum_of_column(mem_dump_tbb_profile_bin_tag_stats_tracking, 3),
                sum_of_column(mem_dump_tbb_fileline_tracking, 4) ==
                    sum_of_column(mem_dump_tbb_subsystem_tracking, 4));
    std::printf("%d\n",
                mem_get_stats().current.bytes == sum_of_column(mem_dump_tbb_profile_bin_stats_tracking, 4));
}

// Everything that a child may call, while locks may be held by threads that are not there.
[[noreturn]] void live_as_child(bool exits) {
    alarm(20);
    const bool silent = dump_everything().empty();
    pass_a_phase();
    flush_and_sample();
    reset();
    switch_the_word();
    mem_set_tbb_memory_tracking_enabled(true);
    pass_a_phase();
    mem_set_tbb_exe_string("child");
    mem_notify_memory_mapping_added(nullptr, 4096);
    mem_shutdown_tbb_tracking();
    std::free(std::malloc(100));
    if (exits) std::exit(silent ? 0 : 3);
    _exit(silent ? 0 : 3);
}

void fork_often(int count) {
    Exchange exchange;
    std::atomic<std::uint64_t> number{0};
    const Meanwhile events(8, [&] { exchange.put_block(++number); });
    const Meanwhile flushes(1, flush_and_sample);
    const Meanwhile resets(1, reset);
    const Meanwhile dumps(1, dump_everything);
    const Meanwhile switches(1, switch_the_word);
    int failed = 0;
    for (int i = 0; i < count; ++i) {
        const pid_t child = fork();
        if (child == 0) live_as_child(i % 2 == 0);
        int status = -1;
        waitpid(child, &status, 0);
        if (status != 0) ++failed;
    }
    std::printf("%d failed\n", failed);
}

// A stream whose fourth line, the first row of a report, ends the process.
class LAST_WORDS : public std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize length) override {
        if (++lines == 4) std::exit(5);
        return length;
    }
    int lines = 0;
};

void exit_in_dump(int which) {
    LAST_WORDS words;
    std::ostream last(&words);
    std::ostringstream other;
    mem_user_snapshot_tracking_data();
    if (which == 0) mem_dump_tbb_fileline_tracking(last);
    if (which == 1) mem_dump_tbb_subsystem_tracking(last);
    if (which == 2) mem_dump_tbb_module_tracking(other, last);
    if (which == 3) mem_dump_tbb_profile_bin_tag_timeline_tracking(other, last);
}

}  // namespace

int main(int, char** arguments) {
    const std::string way = arguments[1];
    const int number = std::atoi(arguments[2]);
    if (way == "modules") use_modules(number, arguments[3]);
    if (way == "storm") storm(number);
    if (way == "forks") fork_often(number);
    if (way == "exit_in_dump") exit_in_dump(number);
}
