// A scripted run, and the complete set of files that it leaves: every figure in tests/report/expected was
// worked out by hand from the script below.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <locale>
#include <regex>

#include "ktl_mem/profile_bins.h"
#include "ktl_mem/reports.h"
#include "ktl_mem/timelines.h"
#include "ktl_mem/tracking.h"
#include "mem/base/tracking_word.h"
#include "tests/report/scripted_sites.h"

namespace {

namespace fs = std::filesystem;
using FILES = std::map<std::string, std::string>;

// What differs from run to run, and from machine to machine.
std::string masked(std::string text) {
    const std::pair<const char*, const char*> masks[] = {
        {"Time spent dumping:\t\\d+ clicks.\t[-+.e\\d]+ seconds.", "<time>"},
        {"0x[0-9a-f]+", "<address>"},
        {"/[^\t:\"\n]*/(?=tests/)", ""},
        {"(Start|Process|Parent)\t[\\d.]+", "$1\t<number>"},
        {"(^|\n)(\\d+)\t\\d+\t(\\d+)(?=\n)", "$1$2\t<milliseconds>\t$3"},
        {"(^|\n)\\d{5,}\t\\d{5,}\t\\d{5,}\t", "$1<process>\t"},
        {"(^|\n)\\d+\t\\d{5,}\t\\d{5,}\t", "$1<process>\t"},
    };
    for (const auto& [what, by] : masks) text = std::regex_replace(text, std::regex(what), by);
    return text;
}

std::string content_of(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// Filtered frames stand in no order.
std::string with_sorted_rows(const std::string& text) {
    std::istringstream in(text);
    std::string sorted;
    std::getline(in, sorted);
    std::multiset<std::string> rows;
    for (std::string line; std::getline(in, line);) rows.insert("\n" + line);
    for (const std::string& row : rows) sorted += row;
    return sorted + "\n";
}

FILES files_in(const fs::path& folder) {
    FILES files;
    for (const auto& file : fs::directory_iterator(folder)) {
        const std::string name = file.path().filename().string();
        const std::string text = masked(content_of(file.path()));
        files[name] = name.starts_with("mem_tbb_filters.") ? with_sorted_rows(text) : text;
    }
    return files;
}

// A host that groups digits must not change a report.
struct GROUPED : std::numpunct<char> {
    std::string do_grouping() const override { return "\3"; }
    char do_thousands_sep() const override { return '\''; }
};

void close_bin(const char* tag, std::uint64_t expected_start, std::uint64_t expected_peak) {
    std::uint64_t start = 0, end = 0, peak = 0;
    mem_close_profile_bin(tag, &start, &end, &peak);
    EXPECT_EQ(std::tuple(start, end, peak), std::tuple(expected_start, 950000u, expected_peak));
}

void free_block(const BLOCK& block) {
    release(block.address, block.allocated);
}

// A sampling point at every fourth event, and a peak at every million bytes.
void run_script() {
    const BLOCK codes{0x1000, 500000, 600000};
    const BLOCK text{0x2000, 800000, 900000};
    const BLOCK words{0x3000, 250000, 250000};
    const BLOCK stray{0x4000, 100000, 100000};
    const BLOCK answers{0x5000, 1150000, 1200000};
    const BLOCK more_words{0x6000, 390000, 400000};

    read_codes(codes);  // event 0: a sample
    mem_open_profile_bin("codes", "reading");
    read_codes(text);
    build_index(words);
    free_block(text);           // event 3: a peak of 1750000, and a sample
    mem_without_caller(stray);  // event 4: a sample
    mem_open_profile_bin("lookup", "");
    look_up(answers);
    mem_set_timeline_label("by the host");
    mem_user_snapshot_tracking_data();
    mem_tbb_tracking_flush_peak();  // keeps 1750000, and takes a sample
    free_block(answers);            // event 8: a higher peak of 2150000, and a sample
    close_bin("", 950000, 2150000);
    close_bin("reading", 600000, 2150000);
    free_block({0x9000, 0, 50000});  // of a block that nobody knows
    build_index(more_words);
    free_block(codes);

    const bool was_blocked = mem_block_thread_tracking() != 0;
    mem_notify_memory_mapping_added(nullptr, 4096);
    mem_notify_memory_mapping_added(nullptr, 1000);
    mem_notify_memory_mapping_removed(nullptr, 1000);
    if (!was_blocked) mem_unblock_thread_tracking();
}

// The tests go on from where the one before has ended.
class ReportSet : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        std::string name = (fs::temp_directory_path() / "ktl_mem_XXXXXX").string();
        fs::current_path(mkdtemp(name.data()));
        std::locale::global(std::locale(std::locale::classic(), new GROUPED));
        setenv("VELDRIN_MEM_PROFILE_ALL", "1", 1);
        setenv("VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", "4", 1);
        setenv("VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD", "1000000", 1);
        mem_tbb_tracker_start(mem_get_tracking_granularity_from_env());
        MEM_STACK_TRACE_IGNORE_DEPTH = 4;  // no function of an allocator lies between event and caller
        mem_set_tbb_exe_string("scripted");
        std::ostringstream untouched;
        mem_dump_tbb_fileline_tracking(untouched);
        mem_dump_tbb_subsystem_tracking(untouched);
        before_any_event = masked(untouched.str());
        run_script();
        at_end = shut_down();
        std::locale::global(std::locale::classic());
    }
    static void TearDownTestSuite() {
        const fs::path folder = fs::current_path();
        fs::current_path("/");
        fs::remove_all(folder);
    }

    // What a shut-down leaves in an empty folder.
    static FILES shut_down() {
        mem_shutdown_tbb_tracking();
        FILES files = files_in(".");
        for (const auto& [name, text] : files) fs::remove(name);
        return files;
    }

    static inline FILES at_end;
    static inline std::string before_any_event;
};

TEST_F(ReportSet, BeforeAnyEventThereIsNothingButARowForWhatHasNoCallSite) {
    EXPECT_THAT(before_any_event,
                testing::MatchesRegex("MEM: TBB Fileline Tracking Memory Snapshot. \\[at index 0\\]\n\n"
                                      "Address\t[^\n]*\nOTHER(\t0){10}\t\t\t0\t\n<time>\n"
                                      "MEM: TBB Subsystem Tracking Memory Snapshot.\n\n"
                                      "Subsystem\t[^\n]*\n<time>\n"));
}

TEST_F(ReportSet, IsCompleteAndExact) {
    FILES expected;
    for (const auto& file : fs::directory_iterator(EXPECTED_FOLDER))
        expected[file.path().filename().string()] = content_of(file.path());
    EXPECT_EQ(expected.size(), 15u);
    for (const auto& [name, text] : expected) EXPECT_EQ(at_end[name], text) << name;
    EXPECT_EQ(at_end.size(), expected.size());
}

TEST_F(ReportSet, ASecondShutDownWritesTheFilteredFramesAlone) {
    const FILES again = shut_down();
    ASSERT_EQ(again.size(), 1u);
    EXPECT_EQ(again.begin()->second, at_end["mem_tbb_filters.scripted.log"]);
}

TEST_F(ReportSet, WithoutModulesTheSubsystemsHaveNoMaxima) {
    mem_reports_due = MEM_TRACKING_PER_FILELINE;
    const std::string name = "mem_tbb_subsystem.scripted.log";
    const std::regex max_bytes("\n([^\t\n]+\t[^\t\n]+)\t[^\t\n]+");
    EXPECT_EQ(shut_down()[name], std::regex_replace(at_end[name], max_bytes, "\n$1"));
}

TEST_F(ReportSet, TheFastLeakLogGrowsAndTheFullOneIsReplaced) {
    const std::string head = "For more detail, use INI mem_check_leaks=on\n\n";
    const std::string block =
        " memory leak summary\n===============================\n"
        "Leaked bytes:            700000\nPeak bytes on heap:     2150000\n"
        "===============================\n\n";
    const std::string full = at_end["mem_tbb_leak_warning.scripted.log"];
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"0", "mem_tbb_fast_leak_warning.log", "mem_tbb_leak_warning.scripted.log"},
        {"1", "veldrin_za_leak_warning.txt", "veldrin_za_leak_warning.txt"},
    };
    for (const auto& [za_mode, fast_name, full_name] : cases) {
        setenv("MEM_LEAK_TRACKING_IN_ZA_MODE", za_mode, 1);
        mem_tracking_word = MEM_TRACKING_LEAKS_FAST;
        mem_shutdown_tbb_tracking();
        EXPECT_EQ(shut_down()[fast_name], head + block + block);
        EXPECT_EQ(mem_tracking_word, std::uint32_t{MEM_TRACKING_LEAKS_FAST});
        mem_tracking_word = MEM_TRACKING_LEAKS | MEM_TRACKING_LEAKS_FAST;
        std::ofstream(full_name) << "of an older run";
        EXPECT_EQ(shut_down()[full_name], full);
    }
    unsetenv("MEM_LEAK_TRACKING_IN_ZA_MODE");
    mem_tracking_word = 0;
}

TEST_F(ReportSet, WhatHasNoCallSiteIsNoLeak) {
    mem_tracking_word = MEM_TRACKING_LEAKS;
    free_block({0x3000, 0, 250000});
    free_block({0x6000, 0, 400000});  // 50000 bytes without a call site are left
    EXPECT_EQ(shut_down()["mem_tbb_leak_warning.scripted.log"],
              "MEM: TBB Leak Checking Summary.\n\n\nTotal leaked bytes: 0\n");
}

TEST_F(ReportSet, TheFiltersFileHasNoRowsAfterAResetAndMissesAPlaceAloud) {
    mem_reset_tracking_entries();
    EXPECT_EQ(shut_down()["mem_tbb_filters.scripted.log"], "\"PC\",\"module\",\"function\",\"fileline\"\n");
    for (const auto& [name, text] : at_end) fs::create_directory(name);
    mem_reports_due = MEM_TRACKING_ALL;
    testing::internal::CaptureStderr();
    mem_shutdown_tbb_tracking();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "unable to create VMP filters file\n");
}

}  // namespace
