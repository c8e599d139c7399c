// The call paths against a recorder of this test's own: functions that note where they are, and a log of what
// they allocate and free.
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "ktl_mem/reports.h"
#include "mem/paths/call_paths.h"
#include "tests/tracker/tracked_events.h"

namespace {

struct Figures {
    std::int64_t bytes, blocks, requested, peak_bytes, peak_blocks, cumulative, cumulative_blocks,
        cumulative_requested, temporary;

    bool operator==(const Figures&) const = default;
};
void PrintTo(const Figures& f, std::ostream* out) {
    for (auto v : {f.bytes, f.blocks, f.requested, f.peak_bytes, f.peak_blocks, f.cumulative,
                   f.cumulative_blocks, f.cumulative_requested, f.temporary})
        *out << v << ' ';
}
using Paths = std::map<std::string, Figures>;

std::vector<std::string> cells(const std::string& line) {
    std::vector<std::string> all;
    std::istringstream in(line);
    for (std::string cell; std::getline(in, cell, '\t');) all.push_back(cell);
    return all;
}

// The report, with each path as the numbers of the functions below that it leads through.
struct Report {
    Paths paths;
    std::map<std::string, std::int64_t> head;
    std::map<std::string, std::pair<std::int64_t, std::int64_t>> bytes_of_site;  // current, cumulative

    Report() {
        std::stringstream text;
        mem_dump_tbb_call_paths_tracking(text);
        std::string line;
        std::map<std::string, std::string> steps, path_to{{"0", ""}};
        for (int section = 0; std::getline(text, line);) {
            const std::vector<std::string> row = cells(line);
            if (row.empty()) ++section;
            if (section == 1 && row.size() == 2 && row[0] != "Key") head[row[0]] = std::stoll(row[1]);
            if (section == 2 && row.size() == 8 && row[7].starts_with("(anonymous namespace)::step<"))
                steps[row[0]] = row[7].substr(28, row[7].find('>') - 28) + "/";
            if (section == 3 && row.size() == 13 && row[0] != "Node") take_node(row, steps, path_to);
        }
    }
    void take_node(const std::vector<std::string>& row, std::map<std::string, std::string>& steps,
                   std::map<std::string, std::string>& path_to) {
        const std::string path = path_to[row[1]] + steps[row[2]];
        path_to[row[0]] = path;
        const auto n = [&](std::size_t i) { return std::stoll(row[i + 4]); };
        const Figures f{n(0), n(1), n(2), n(3), n(4), n(5), n(6), n(7), n(8)};
        const bool is_second = f.cumulative_blocks != 0 && !paths.emplace(path, f).second;
        EXPECT_FALSE(is_second) << path;
        bytes_of_site[row[3]].first += f.bytes;
        bytes_of_site[row[3]].second += f.cumulative;
    }
};

std::string here;
struct Live {
    std::string path;
    std::uint64_t requested, allocated;
};
std::map<std::uint64_t, Live> live;
Paths expected;
std::int64_t total, highest, events, event_of_highest;
std::uint64_t latest;
std::minstd_rand random_number;

void log_event() {
    ++events;
    if (total <= highest) return;
    highest = total;
    event_of_highest = events;
    for (auto& [path, f] : expected) f.peak_bytes = f.bytes, f.peak_blocks = f.blocks;
}

__attribute__((noinline)) void make_block() {
    const std::uint64_t requested = 1 + random_number() % 5000, allocated = requested + random_number() % 300;
    const std::uint64_t address = 0x100000 + 0x10000 * (random_number() % 400);
    if (live.contains(address)) return;
    allocate({address, requested, allocated});
    const auto bytes = static_cast<std::int64_t>(allocated), asked = static_cast<std::int64_t>(requested);
    Figures& f = expected[here];
    f = {f.bytes + bytes, f.blocks + 1,         f.requested + asked,     f.peak_bytes,
         f.peak_blocks,   f.cumulative + bytes, f.cumulative_blocks + 1, f.cumulative_requested + asked,
         f.temporary};
    live[address] = {here, requested, allocated};
    total += bytes;
    latest = address;
    log_event();
}

void free_block() {
    if (live.empty()) return;
    auto block = live.lower_bound(0x100000 + 0x10000 * (random_number() % 400));
    if (random_number() % 3 == 0) block = live.find(latest);
    if (block == live.end()) return;
    const auto [address, what] = *block;
    release(address, what.allocated);
    Figures& f = expected[what.path];
    f.bytes -= static_cast<std::int64_t>(what.allocated);
    f.requested -= static_cast<std::int64_t>(what.requested);
    --f.blocks;
    if (address == latest) ++f.temporary;
    total -= static_cast<std::int64_t>(what.allocated);
    live.erase(block);
    log_event();
}

template <int NUMBER>
void step(int depth);
constexpr std::array<void (*)(int), 4> steps = {step<0>, step<1>, step<2>, step<3>};

template <int NUMBER>
__attribute__((noinline)) void step(int depth) {
    const std::size_t length = here.size();
    here += std::to_string(NUMBER) + "/";
    const auto choice = random_number() % 4;
    // Each kind of event from one place in the code.
    for (int turn = 0; turn < 4; ++turn) {
        if (turn == static_cast<int>(choice) && depth > 0) steps[random_number() % steps.size()](depth - 1);
        if (turn == 1) make_block();
        if (turn == 2 && random_number() % 5 < 3) free_block();
    }
    here.resize(length);
    asm volatile("" ::"i"(NUMBER));
}

class CallPaths : public TrackedEvents {
  protected:
    CallPaths() {
        mem_enable_tracking(MEM_TRACKING_CALL_PATHS);
        live.clear();
        expected.clear();
        total = highest = event_of_highest = events = 0;
        latest = 0;
        before = mem_events_numbered();
    }
    ~CallPaths() override {
        for (const auto& [address, what] : live) release(address, what.allocated);
        mem_disable_tracking(MEM_TRACKING_CALL_PATHS);
    }
    static void wander(int turns) {
        for (int i = 0; i < turns; ++i)
            steps[random_number() % steps.size()](static_cast<int>(random_number() % 12));
    }
    std::uint64_t before;
};

TEST_F(CallPaths, AreThoseOfAnIndependentRecorderToTheByte) {
    for (int round = 0; round < 3; ++round) {
        wander(1500);
        const Report report;
        EXPECT_EQ(report.paths, expected);
        auto head = report.head;
        EXPECT_EQ(head["Peak bytes"], highest);
        EXPECT_EQ(head["Peak event"] - static_cast<std::int64_t>(before), event_of_highest);
        EXPECT_EQ(head["Events"], events);
        EXPECT_EQ(head["Current bytes"], total);
        EXPECT_EQ(head["Shortened events"], 0);
    }
    mem_reset_tracking_entries();
    EXPECT_EQ(Report().paths, Paths());
}

__attribute__((noinline)) void large_block(std::uint64_t address) {
    allocate({address, 9000, 10000});
    asm volatile("");
}

TEST_F(CallPaths, ThreadsThatMeetAreCountedInSharesThatMakeTheWhole) {
    constexpr int threads = 4, blocks = 500;
    for (int i = 0; i < 2; ++i) {
        std::vector<std::thread> all;
        for (int thread = 0; thread < threads; ++thread)
            all.emplace_back([=] {
                const std::uint64_t from = 0x10000000U * static_cast<unsigned>(1 + i * threads + thread);
                for (int block = 0; block < blocks; ++block) large_block(from + 0x10000U * block);
                for (int block = i; block < blocks; ++block) release(from + 0x10000U * block, 10000);
            });
        for (std::thread& thread : all) thread.join();
        // As if they had waited for each other often enough.
        const MEM_PATH_REGION& region = mem_tbb_call_paths->region();
        for (std::uint32_t at = 1; at < region.header->accounts.get(); ++at)
            region.counts(at).is_shared.set(true);
    }
    const Report report;
    ASSERT_EQ(report.paths.size(), 1U);  // none of them leads through a step
    const Figures& all = report.paths.begin()->second;
    EXPECT_EQ(all.bytes, 4 * 10000);
    EXPECT_EQ(all.blocks, 4);
    EXPECT_EQ(all.requested, 4 * 9000);
    EXPECT_EQ(all.cumulative, 2 * 4 * 500 * 10000);
    EXPECT_EQ(all.cumulative_blocks, 2 * 4 * 500);
    EXPECT_EQ(all.peak_bytes, report.head.at("Peak bytes"));
    for (unsigned thread = 0; thread < threads; ++thread)
        release(std::uint64_t{0x10000000U} * (1 + threads + thread), 10000);
}

TEST_F(CallPaths, OfTheMostBytesIsToldAsText) {
    const volatile unsigned blocks = 2;  // so that the loop stays one place
    for (unsigned block = 1; block <= blocks; ++block) large_block(0x10000U * block);
    allocate({0x40000, 15000, 16000});
    release(0x10000, 10000);
    const auto first_frame = [](const std::string& text) {
        const std::size_t begin = text.find('\n') + 1;
        return text.substr(begin, text.find('\n', begin) - begin);
    };
    const std::string at_peak = mem_get_largest_call_path(MEM_CALL_PATH_MOMENT::PEAK);
    EXPECT_TRUE(at_peak.starts_with("20000 bytes in 2 blocks\n")) << at_peak;
    EXPECT_NE(first_frame(at_peak).find("::large_block(unsigned long)"), std::string::npos) << at_peak;
    EXPECT_NE(at_peak.find("call_paths_test.cpp:"), std::string::npos) << at_peak;
    const std::string now = mem_get_largest_call_path(MEM_CALL_PATH_MOMENT::NOW);
    EXPECT_TRUE(now.starts_with("16000 bytes in 1 blocks\n")) << now;
    EXPECT_NE(first_frame(now).find("OfTheMostBytesIsToldAsText"), std::string::npos) << now;
    for (const auto& [address, bytes] : {std::pair{0x20000, 10000}, {0x40000, 16000}})
        release(static_cast<std::uint64_t>(address), static_cast<std::uint64_t>(bytes));
}

}  // namespace
