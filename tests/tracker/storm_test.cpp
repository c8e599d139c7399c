// Everything at once. A data race shows under ThreadSanitizer, a deadlock as a time-out, and what gets lost
// in the sums. KTL_MEM_STORM_SECONDS sets how long it goes on.
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "mem/attribution/module_trackers.h"
#include "mem/base/pool_turn.h"
#include "mem/report/report_gate.h"
#include "mem/report/shutdown.h"
#include "platform/process_life.h"
#include "tests/bins/on_threads.h"
#include "tests/tracker/all_calls.h"
#include "tests/tracker/tracked_events.h"

namespace {

constexpr int allocating_threads = 8;

std::chrono::seconds length_of_storm() {
    const char* const seconds = std::getenv("KTL_MEM_STORM_SECONDS");
    return std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 2);
}

// A block's size follows from its address, so that any thread can free it.
std::uint64_t bytes_of(std::uint64_t address) {
    return 16 + (address >> 4) % 97 * 16;
}

// Threads put blocks into places and free what they find there, whoever allocated it.
class Exchange {
  public:
    void put_block(int thread, std::uint64_t number) {
        using SITE = void(std::uint64_t, std::uint64_t);
        constexpr std::array<SITE*, 4> sites = {allocate_at<1>, allocate_at<2>, allocate_at<3>,
                                                allocate_at<4>};
        const std::uint64_t address = (static_cast<std::uint64_t>(thread) + 1) << 40 | number << 4;
        sites[number % sites.size()](address, bytes_of(address));
        allocated += static_cast<std::int64_t>(bytes_of(address));
        free_block(places[number * 7919 % places.size()].exchange(address));
    }
    void free_all() {
        for (auto& place : places) free_block(place.exchange(0));
    }
    std::int64_t live() const {
        std::int64_t bytes = 0;
        for (const auto& place : places)
            if (place != 0) bytes += static_cast<std::int64_t>(bytes_of(place));
        return bytes;
    }

    std::atomic<std::int64_t> allocated{0};

  private:
    static void free_block(std::uint64_t address) {
        if (address != 0) release(address, bytes_of(address));
    }
    std::array<std::atomic<std::uint64_t>, 512> places{};
};

// A child has the locks as other threads held them at the fork, and none of these threads. It ends at once:
// what would run at its exit belongs to the tests of its parent.
void fork_a_child() {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        allocate_at<1>(0x1000, 16);
        release(0x1000, 16);
        pass_a_phase();
        flush_and_sample();
        reset();
        std::free(std::malloc(100));
        _exit(dump_everything().empty() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    pause_storm();
}

void switch_call_paths() {
    mem_enable_tracking(MEM_TRACKING_CALL_PATHS);
    pause_storm();
    mem_disable_tracking(MEM_TRACKING_CALL_PATHS);
}

class Storm : public TrackedEvents {
  protected:
    // As at the library's load.
    static void SetUpTestSuite() {
        clear_in_forked_child(&mem_tracking_word, sizeof mem_tracking_word);
        mem_hold_pool_turn_at_forks();
        run_in_forked_child(mem_abandon_tracking_in_child);
    }
    Storm() {
        mem_set_msg_local_vdebug_callback([](const char*, const char*, va_list) { return true; });
        mem_library_snapshot_period = 5000;
        set_threshold(20000);
    }

    using SUMS = std::pair<std::int64_t, std::int64_t>;
    static SUMS current_and_ever(const MEM_PROFILE_BIN_TABLE& table) {
        SUMS sums;
        for (std::uint32_t id = 0; id < table.size(); ++id)
            sums = {sums.first + table.row(id).tally.read().current_bytes,
                    sums.second + table.row(id).tally.read().cumulative_bytes};
        return sums;
    }
    static SUMS current_and_ever_of_call_sites() {
        SUMS sums;
        const MEM_LOCK_SCOPE guard(mem_call_site_lock);
        for (auto& [pc, site] : mem_tbb_call_sites->records())
            sums = {sums.first + site.counters().current_bytes,
                    sums.second + site.counters().cumulative_bytes};
        return sums;
    }
    static std::int64_t peaks_of(const MEM_PROFILE_BIN_TABLE& table) {
        std::int64_t sum = 0;
        for (std::uint32_t id = 0; id < table.size(); ++id) sum += table.row(id).peak;
        return sum;
    }
    static std::int64_t peaks_of_call_sites() {
        std::int64_t sum = 0;
        const MEM_LOCK_SCOPE guard(mem_call_site_lock);
        for (auto& [pc, site] : mem_tbb_call_sites->records()) sum += site.peak_bytes;
        return sum;
    }
    static std::int64_t current_of_modules() {
        std::int64_t sum = 0;
        mem_tbb_module_trackers->for_each_at_rest([&](const auto& module) { sum += module.current_bytes; });
        return sum;
    }
};

TEST_F(Storm, CallsOfAllKindsGoOnBesideEvents) {
    mem_tbb_bin_table->clear();  // of what other tests have left
    Exchange exchange;
    {
        const Meanwhile phases(1, pass_a_phase);
        const Meanwhile flushes(2, flush_and_sample);
        const Meanwhile resets(1, reset);
        const Meanwhile switches(1, switch_call_paths);
        const Meanwhile dumps(2, dump_everything);
        const Meanwhile forks(1, fork_a_child);
        const auto end = std::chrono::steady_clock::now() + length_of_storm();
        on_threads(allocating_threads, [&](int thread) {
            for (std::uint64_t i = 0; std::chrono::steady_clock::now() < end; ++i)
                exchange.put_block(thread, i);
        });
    }
    // Resets leave bins and statistics alone.
    const std::int64_t live = exchange.live();
    EXPECT_EQ(current_and_ever(*mem_tbb_bin_table), std::pair(live, exchange.allocated.load()));
    EXPECT_EQ(mem_get_stats().current.bytes, live);
    exchange.free_all();
    EXPECT_EQ(mem_get_stats().current.blocks, 0);
}

// Reports and peaks are made alone in the gate, and find no event there of which they see a part.
TEST_F(Storm, AllSumsAgreeAtEveryMoment) {
    mem_tbb_bin_table->clear();
    mem_tbb_tag_table->clear();
    Exchange exchange;
    {
        const Meanwhile phases(1, pass_a_phase);
        const Meanwhile allocating(3, [&exchange] {
            static std::atomic<int> next_thread{0};
            thread_local const int thread = next_thread++;
            thread_local std::uint64_t number = 0;
            exchange.put_block(thread, number++);
        });
        for (int i = 0; i < 300; ++i) {
            const MEM_REPORT_GATE alone;
            const SUMS sums = current_and_ever_of_call_sites();
            ASSERT_EQ(current_and_ever(*mem_tbb_bin_table), sums);
            ASSERT_EQ(current_and_ever(*mem_tbb_tag_table), sums);
            ASSERT_EQ(current_of_modules(), sums.first);
            ASSERT_EQ(mem_tbb_total_bytes.read().current_bytes, sums.first);
            ASSERT_EQ(mem_get_stats().current.bytes, sums.first);
            ASSERT_EQ(peaks_of(*mem_tbb_bin_table), peaks_of_call_sites());
            ASSERT_EQ(peaks_of(*mem_tbb_tag_table), peaks_of_call_sites());
        }
    }
    exchange.free_all();
}

TEST_F(Storm, AllSumsAgreeWithTheTotal) {
    Exchange exchange;
    {
        const Meanwhile phases(1, pass_a_phase);
        const Meanwhile flushes(1, flush_and_sample);
        const Meanwhile dumps(1, dump_everything);
        on_threads(allocating_threads, [&](int thread) {
            for (std::uint64_t i = 0; i < 2000; ++i) exchange.put_block(thread, i);
        });
    }
    const auto expected = std::pair(exchange.live(), exchange.allocated.load());
    EXPECT_EQ(mem_tbb_total_bytes.read().current_bytes, expected.first);
    EXPECT_EQ(current_and_ever(*mem_tbb_tag_table), expected);
    EXPECT_EQ(current_and_ever_of_call_sites(), expected);
    EXPECT_EQ(current_of_modules(), expected.first);
    exchange.free_all();
}

}  // namespace
