// What the readers take, and what they refuse and how.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>
#include <regex>

#include "tests/memview/reports.h"
#include "tools/memview/summary.h"
#include "tools/reports/folder.h"

namespace {

using namespace memview;
using namespace memview_test;
using testing::HasSubstr;
using testing::StartsWith;

std::unique_ptr<Folder> read(const Scratch& scratch, bool keep_going = false) {
    return read_folders({{scratch.path()}, "", keep_going});
}

std::string refusal(const FolderRequest& request) {
    try {
        read_folders(request);
    } catch (const ReportError& error) {
        return error.what();
    }
    return "no error";
}

// The cells of a table, row by row.
std::string cells(const Folder& folder, const char* key) {
    std::string text;
    const Table& table = *folder.runs[0].table(key);
    for (std::size_t row = 0; row < table.rows; ++row) {
        for (const Column& column : table.columns) {
            const std::int64_t value = column.cells[row];
            text += column.spec.unit == Unit::text ? folder.names->text(value) : std::to_string(value);
            text += &column == &table.columns.back() ? '\n' : '|';
        }
    }
    return text;
}

struct Good {
    const char* what;
    const char* file;
    std::string text;
    const char* table;
    const char* expected;
};

const Good GOOD[] = {
    {"call sites, one with figures of more than 32 bits", "mem_tbb_fileline.a.log",
     SITES_HEAD +
         "0xff\t-5\t300\t200\t1000\t900\t8\t-1\t3\t2\t10\tapp\t/src/a b.cpp\t12\tf(char const*)\n"
         "0x7f00000000ff\t5000000000\t-5000000000\t1\t2\t3\t4\t5\t6\t7\t8\tapp\t\t0\t\n" +
         OTHER_SITE + "Error timing this dump.\n",
     "sites",
     "255|-5|300|200|1000|900|8|-1|3|2|10|app|/src/a b.cpp|12|f(char const*)\n"
     "139637976727807|5000000000|-5000000000|1|2|3|4|5|6|7|8|app||0|\n"
     "0|0|0|0|0|0|0|0|0|0|0|||0|\n"},
    {"modules", "mem_tbb_subsystem.a.log", MODULES_HEAD + "app\t1\t9\t2\t3\t4\t5\t6\t7\t8\n" + CLOSING,
     "modules", "app|1|9|2|3|4|5|6|7|8\n"},
    {"modules without their maximum", "mem_tbb_subsystem.a.log",
     std::regex_replace(MODULES_HEAD, std::regex("Max bytes\t"), "") + "app\t1\t2\t3\t4\t5\t6\t7\t8\n" +
         CLOSING,
     "modules", "app|1|2|3|4|5|6|7|8\n"},
    {"tags", "mem_tbb_pbin_tag_stats.a.log", STATS_HEAD + "Root\t1572864\t2\t3\t-4\n", "tags",
     "Root|1572864|2|3|-4\n"},
    {"tags in MiB", "mem_tbb_pbin_tag_stats_mb.a.log",
     STATS_MIB_HEAD + "Root\t1.500\t0.000\t12.007\t-0.004\n", "tags_mb", "Root|1500|0|12007|-4\n"},
    {"leaks whose names hold the words of the report", "mem_tbb_leak_warning.a.log",
     LEAK_HEAD +
         "it leaked here leaked 70 bytes in 2 object(s) allocated at /a:b/c.cpp:12 f(int) leaked 3 bytes\n"
         "lib leaked 30 bytes in 1 object(s) allocated at Unknown:0 \n\nTotal leaked bytes: 100\n",
     "leaks", "it leaked here|70|2|/a:b/c.cpp|12|f(int) leaked 3 bytes\nlib|30|1|Unknown|0|\n"},
    {"leaks with a summary of another process behind", "veldrin_za_leak_warning.txt",
     LEAK_HEAD + "\nTotal leaked bytes: 0\n" + fast_summary("/bin/other", 4, 9), "fast_leaks",
     "/bin/other|4|9\n"},
    {"filtered frames with unescaped names", "mem_tbb_filters.a.log",
     FILTERS_HEAD + "\"0x10\",\"stdc++\",\"f(\",\")\",\"/b.h:3\"\n\"0x20\",\"tbb\",\"\",\"\"\n", "filtered",
     "16|stdc++|f(\",\")|/b.h:3\n32|tbb||\n"}};

TEST(Reading, TablesWithEveryFigure) {
    for (const auto& [what, file, text, table, expected] : GOOD) {
        Scratch scratch;
        scratch.write(file, text);
        EXPECT_EQ(cells(*read(scratch), table), expected) << what;
    }
}

// 1000 samples in at most 128 equal stretches are 125 stretches of 8; 777 is in number 97.
TEST(Reading, TimelinesKeepTheirExtremesWhateverTheirLength) {
    Scratch scratch;
    std::string text = TIMELINE_HEAD + "\tMisc\tapp\n";
    for (int i = 0; i < 1000; ++i)
        text += "Other\t" + std::to_string(i == 777 ? 5000 : i) + "\t" + std::to_string(-i) + "\n";
    scratch.write("mem_tbb_timeline.a.log", text + CLOSING);
    const auto folder = read(scratch);
    const Timeline& timeline = *folder->runs[0].timeline("timeline");
    EXPECT_EQ(timeline.samples, 1000u);
    EXPECT_EQ(timeline.series[0].highest, 5000);
    EXPECT_EQ(timeline.series[1].highest, 0);
    EXPECT_EQ(timeline.series[1].last, -999);
    ASSERT_EQ(timeline.series[0].stretches.size(), 125u);
    EXPECT_EQ(timeline.series[0].stretches[97], 5000);
    EXPECT_EQ(timeline.series[0].stretches[96], 775);
}

TEST(Reading, AuxiliaryFiguresThatTheSystemRefusedAndThatWrapped) {
    Scratch scratch;
    const std::string refused = "18446744073709551615\t";
    scratch.write(
        "mem_tbb_auxiliary_timeline.a.log",
        AUXILIARY_HEAD + refused + refused + refused + "1\t3\t18446744073709551614\t5\t6\t7\t8\n" + CLOSING);
    const auto folder = read(scratch);
    const Timeline& timeline = *folder->runs[0].timeline("auxiliary_timeline");
    EXPECT_EQ(timeline.series[2].last, -1);
    EXPECT_EQ(timeline.series[5].last, -2);
}

TEST(Reading, FastLeakLogsBelongToTheOnlyProcessOrStandAlone) {
    Scratch scratch;
    scratch.write("mem_tbb_fast_leak_warning.log",
                  FAST_HEAD + fast_summary("/bin/one", 10, 500) + fast_summary("", 5, 70));
    for (const char* name : {"(shared leak log)", "a"}) {
        EXPECT_EQ(read(scratch)->runs[0].name, name);
        EXPECT_EQ(leaked_bytes(read(scratch)->runs[0]), 15);
        scratch.write("mem_tbb_fileline.a.log", sites(""));
    }
    scratch.write("mem_tbb_fileline.b.log", sites(""));
    EXPECT_EQ(read(scratch)->runs.size(), 3u);
}

TEST(Reading, ProcessesAreToldApartAndChosen) {
    Scratch scratch;
    scratch.write("one/mem_tbb_fileline.a.log", sites(site(1, 10)));
    scratch.write("one/mem_tbb_fileline.my.tool.log", sites(""));
    scratch.write("two/mem_tbb_fileline.a.log", sites(""));
    const auto all = read_folders({{scratch.path("one"), scratch.path("two")}, "", false});
    std::vector<std::string> names;
    for (const memview::Run& run : all->runs) names.push_back(run.name);
    EXPECT_THAT(names, testing::ElementsAre(scratch.path("one/a"), "my.tool", scratch.path("two/a")));
    const auto chosen = read_folders({{scratch.path("one")}, "a", false});
    ASSERT_EQ(chosen->runs.size(), 1u);
    EXPECT_EQ(peak_bytes(chosen->runs[0]), 10);
    EXPECT_EQ(leaked_bytes(chosen->runs[0]), std::nullopt);
    EXPECT_EQ(chosen->runs[0].peak_index, 3u);
    EXPECT_THAT(refusal({{scratch.path("one")}, "c", false}),
                HasSubstr("holds no process \"c\", only \"a\", \"my.tool\""));
}

// The call site has what its two paths have; what is no call site's goes to OTHER.
TEST(Reading, CallPathsTellTheExactPeakOfEachRow) {
    Scratch scratch;
    scratch.write("mem_tbb_call_paths.a.log", paths());
    scratch.write("mem_tbb_fileline.a.log", sites(site(1, 600, "work()", 30) + site(2, 50)));
    scratch.write("mem_tbb_subsystem.a.log", MODULES_HEAD + "app\t1\t9\t2\t3\t4\t5\t6\t7\t8\n" +
                                                 "OTHER\t1\t9\t2\t3\t4\t5\t6\t7\t8\n" + CLOSING);
    const auto folder = read(scratch);
    const memview::Run& run = folder->runs[0];
    const auto exact = [&](const char* key) {
        std::vector<std::int64_t> all;
        const Table& table = *run.table(key);
        for (std::size_t row = 0; row < table.rows; ++row) all.push_back((*table.cells("exact_peak"))[row]);
        return all;
    };
    EXPECT_EQ(peak_bytes(run), 900);
    EXPECT_THAT(exact("sites"), testing::ElementsAre(800, 0, 100));
    EXPECT_THAT(exact("modules"), testing::ElementsAre(800, 100));
    EXPECT_THAT(run.paths->first_level, testing::ElementsAre(0, 0, 1, 3));
}

struct Broken {
    const char* what;
    const char* file;
    std::string text;
    const char* expected;  // behind the path of the file
};

constexpr const char* FILELINE = "mem_tbb_fileline.bad.log";
constexpr const char* LEAKS = "mem_tbb_leak_warning.bad.log";
constexpr const char* STATS = "mem_tbb_pbin_tag_stats.bad.log";
constexpr const char* STATS_MIB = "mem_tbb_pbin_tag_stats_mb.bad.log";
constexpr const char* TIMELINE = "mem_tbb_timeline.bad.log";
constexpr const char* AUXILIARY = "mem_tbb_auxiliary_timeline.bad.log";
constexpr const char* FAST_LEAKS = "mem_tbb_fast_leak_warning.log";
constexpr const char* FILTERS = "mem_tbb_filters.bad.log";
constexpr const char* RESIDENT_FILE = "mem_tbb_resident.bad.log";
constexpr const char* PATHS = "mem_tbb_call_paths.bad.log";

const Broken BROKEN[] = {
    {"empty", FILELINE, "", ": the file is empty"},
    {"binary", FILELINE, std::string("\x7f\x45LF\0\0\x01\xff\n\0", 10),
     ":1: not this kind of report: it begins with \"?ELF"},
    {"no rows", FILELINE, SITES_HEAD, ":3: the file is cut: its closing line is missing"},
    {"cut in a row", FILELINE, SITES_HEAD + site(1, 10) + "0x2\t1\t2", ":5: the file is cut inside this row"},
    {"cut in its last digit", FILELINE, SITES_HEAD + site(1, 10).substr(0, site(1, 10).size() - 1),
     ":4: the file is cut inside this row"},
    {"cut in the head", FILELINE, SITES_HEAD.substr(0, 70), ":3: column \"Current bytes\" expected, found"},
    {"no empty line", FILELINE, "MEM: TBB Fileline Tracking Memory Snapshot. [at index 1]\nx\n",
     ":2: an empty line expected, found \"x\""},
    {"bad index", FILELINE, "MEM: TBB Fileline Tracking Memory Snapshot. [at index x]\n\n",
     ":1: unexpected title"},
    {"tab in a name", FILELINE, sites(site(1, 10, "f(\tint)")),
     ":4: 15 fields expected, found 16: a name holds a tab"},
    {"too few fields", FILELINE, sites("0x1\t2\n"), ":4: 15 fields expected, found 2"},
    {"no number", FILELINE, SITES_HEAD + "0x1\tmany" + site(1, 1).substr(5) + CLOSING,
     ":4: \"many\" is no value for column \"Current bytes\""},
    {"no character", FILELINE, sites(site(1, 1, std::string("f\0g", 3))),
     ":4: \"f?g\" is no value for column \"Function\""},
    {"too large", STATS, STATS_HEAD + "Root\t1\t2\t9223372036854775808\t4\n",
     ":4: \"9223372036854775808\" is no value for column \"Cumulative bytes\""},
    {"two reports", FILELINE, sites("") + sites(""), ":6: text behind the closing line"},
    {"two reports mixed", FILELINE, SITES_HEAD + sites(""), ":4: a second report begins here"},
    {"cut stats", STATS, STATS_HEAD + "Root\t1\t2\t3\t45", ":4: the file is cut inside this row"},
    {"bad MiB", STATS_MIB, STATS_MIB_HEAD + "Root\t1.5\t0.000\t0.000\t0.000\n",
     ":4: \"1.5\" is no value for column \"Max MiB\""},
    {"short sample", TIMELINE, TIMELINE_HEAD + "\tMisc\ta\nx\t1\n" + CLOSING,
     ":4: 3 fields expected, found 2"},
    {"cut sample", TIMELINE, TIMELINE_HEAD + "\tMisc\nx\t1", ":4: the file is cut inside this row"},
    {"tab in a label", TIMELINE, TIMELINE_HEAD + "\tMisc\nx\ty\t1\n" + CLOSING,
     ":4: \"y\" is no number (series 1)"},
    {"timeline without end", TIMELINE, TIMELINE_HEAD + "\tMisc\nx\t1\n",
     ":4: the file is cut: its closing line"},
    {"wrong form", TIMELINE, DETAILED_HEAD + "\ta\n" + CLOSING, ":1: not this kind of report"},
    {"unknown figures", AUXILIARY, "MEM: TBB Auxiliary Timeline\n\nfaults\n" + CLOSING,
     ":3: unknown columns \"faults\""},
    {"no leak row", LEAKS, LEAK_HEAD + "rubbish\n\nTotal leaked bytes: 0\n", ":3: no leak row: \"rubbish\""},
    {"leaks without total", LEAKS, LEAK_HEAD, ":2: the file is cut: its total is missing"},
    {"wrong total", LEAKS, LEAK_HEAD + "\nTotal leaked bytes: 5\n",
     ":4: the total is 5, but its rows hold 0"},
    {"cut summary", FAST_LEAKS, FAST_HEAD + fast_summary("a", 1, 2).substr(0, 80), ":5: the summary is cut"},
    {"a limit that is none", RESIDENT_FILE, "MEM: Resident Memory.\n\nLimit of the cgroup\tmany\n",
     ":3: \"Limit of the cgroup?many\" is not the Limit of the cgroup"},
    {"other parts", RESIDENT_FILE, RESIDENT_HEAD.substr(0, RESIDENT_HEAD.size() - 5) + "\n",
     ":6: unknown columns"},
    {"a full point with an unknown part", RESIDENT_FILE,
     RESIDENT_HEAD + "5\t1\tfull" + RESIDENT_ROWS.substr(11, 60) + "\n" + CLOSING, ":7: \"5?1?full"},
    {"points without an end", RESIDENT_FILE, RESIDENT_HEAD + RESIDENT_ROWS, ":8: the file is cut"},
    {"paths of a later version", PATHS, "MEM: Call Paths.\n\nKey\tValue\nVersion\t2\n\n",
     ":5: version 2 of the report is not known here, only 1"},
    {"paths with a word for a number", PATHS, "MEM: Call Paths.\n\nKey\tValue\nVersion\tx\n\n",
     ":4: no key with a number: \"Version?x\""},
    {"a frame too much", PATHS, paths("2" + FRAME_ROWS.substr(1)),
     ":9: frames are not numbered in their order"},
    {"a level too much", PATHS, paths("1\t1" + FRAME_ROWS.substr(3)),
     ":9: levels of a frame are not numbered"},
    {"a node above itself", PATHS, paths(FRAME_ROWS, "1\t1" + NODE_ROWS.substr(3)),
     ":14: the parent of a node does not come before it"},
    {"a node without its frame", PATHS, paths(FRAME_ROWS, "1\t0\t3" + NODE_ROWS.substr(5)),
     ":14: the frame of a node is not listed"},
    {"a node missing", PATHS, paths(FRAME_ROWS, NODE_ROWS.substr(0, NODE_ROWS.find('\n') + 1)),
     ":15: the head says 3 nodes, found 1"},
    {"cut nodes", PATHS, PATHS_HEAD + FRAME_ROWS + NODES_HEAD + NODE_ROWS,
     ":16: the file is cut: its closing line"},
    {"rubbish behind the nodes", PATHS, PATHS_HEAD + FRAME_ROWS + NODES_HEAD + NODE_ROWS + "\nx\n",
     ":18: the closing line expected, found \"x\""},
    {"no filters", FILTERS, FILTERS_HEAD + "x\n", ":2: no row of four quoted fields: \"x\""}};

// Strict, the fault ends the reading; with keep-going it is told and the good file beside it is read.
TEST(Reading, BrokenFilesAreRefusedOrLeftOutWithFileLineAndReason) {
    for (const auto& [what, file, text, expected] : BROKEN) {
        SCOPED_TRACE(what);
        Scratch scratch;
        const std::string path = scratch.write(file, text);
        EXPECT_THAT(refusal({{scratch.path()}, "", false}), StartsWith(path + expected));
        scratch.write("mem_tbb_fileline.good.log", sites(site(1, 10)));
        const auto folder = read(scratch, true);
        ASSERT_FALSE(folder->left_out.empty());
        EXPECT_THAT(folder->left_out[0], StartsWith(path + expected));
        EXPECT_EQ(peak_bytes(folder->runs.back()), 10);
    }
}

TEST(Reading, FoldersAndFilesThatAreNone) {
    Scratch scratch;
    const auto strictly = [&] { return refusal({{scratch.path()}, "", false}); };
    EXPECT_EQ(refusal({{scratch.path("none")}, "", false}), scratch.path("none") + ": no such folder");
    EXPECT_EQ(strictly(), scratch.path() + ": holds no report files (mem_tbb_*.log)");
    const std::string file = scratch.write(FILELINE, "");
    EXPECT_EQ(refusal({{file}, "", false}), file + ": is not a folder");
    EXPECT_THAT(refusal({{scratch.path(), scratch.path() + "/."}, "", false}), HasSubstr("is given twice"));
    EXPECT_THAT(refusal({{scratch.path()}, "", true}), HasSubstr("the file is empty"));
    std::filesystem::resize_file(file, std::uintmax_t{4} << 30);
    EXPECT_EQ(strictly(), file + ":1: no line end within 64 MiB: not a report");
    std::filesystem::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(strictly(), file + ": is not a regular file");
}

std::string damaged(std::string text, std::mt19937& random) {
    for (std::size_t i = 0, n = 1 + random() % 3; i < n && !text.empty(); ++i) {
        const std::size_t at = random() % text.size();
        switch (random() % 3) {
            case 0:
                text.resize(at);
                break;
            case 1:
                text.erase(at, random() % 9);
                break;
            default:
                text[at] = static_cast<char>(random());
        }
    }
    return text;
}

// Damage of any kind gives a result or a ReportError, never a crash.
TEST(Reading, DamageNeverCrashes) {
    std::vector<std::pair<std::string, std::string>> files = {
        {TIMELINE, TIMELINE_HEAD + "\tMisc\ta\nx\t1\t2\ny\t3\t4\n" + CLOSING},
        {FAST_LEAKS, FAST_HEAD + fast_summary("a", 1, 2)},
        {PATHS, paths()}};
    for (const Good& good : GOOD) files.emplace_back(good.file, good.text);
    std::mt19937 random(7);
    for (std::size_t round = 0; round < 1500; ++round) {
        const auto& [name, text] = files[round % files.size()];
        Scratch scratch;
        scratch.write(name, damaged(text, random));
        refusal({{scratch.path()}, "", round % 2 == 0});
    }
}

}  // namespace
