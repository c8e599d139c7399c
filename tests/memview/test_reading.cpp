// What the readers take, and what they refuse and how.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>

#include "tests/memview/reports.h"
#include "tools/memview/folder.h"
#include "tools/memview/summary.h"

namespace {

using namespace memview;
using namespace memview_test;
using testing::ElementsAre;
using testing::HasSubstr;

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

TEST(Reading, CallSitesWithEveryFigure) {
    Scratch scratch;
    scratch.write("mem_tbb_fileline.my.tool.log", SITES_HEAD +
                                                      "0x7f00000000ff\t-5\t300\t200\t1000\t900\t8\t-"
                                                      "1\t3\t2\t10\tapp\t/src/a b.cpp\t12\tf(char const*)\n" +
                                                      OTHER_SITE + "Error timing this dump.\n");
    const auto folder = read(scratch);
    ASSERT_EQ(folder->runs.size(), 1u);
    const memview::Run& run = folder->runs[0];
    EXPECT_EQ(run.name, "my.tool");
    EXPECT_EQ(run.peak_index, 7u);
    const Table& table = *run.table("sites");
    ASSERT_EQ(table.rows, 2u);
    std::vector<std::int64_t> figures;
    for (std::size_t i = 0; i < 11; ++i) figures.push_back(table.columns[i].cells[0]);
    EXPECT_THAT(figures, ElementsAre(0x7f00000000ff, -5, 300, 200, 1000, 900, 8, -1, 3, 2, 10));
    EXPECT_EQ(folder->names.text((*table.cells("file"))[0]), "/src/a b.cpp");
    EXPECT_EQ(folder->names.text((*table.cells("function"))[0]), "f(char const*)");
    EXPECT_EQ((*table.cells("address"))[1], 0);
    EXPECT_EQ(peak_bytes(run), 200);
    EXPECT_EQ(leaked_bytes(run), std::nullopt);
}

TEST(Reading, ModulesWithAndWithoutTheirMaximum) {
    Scratch scratch;
    scratch.write("mem_tbb_subsystem.a.log", MODULES_HEAD + "app\t1\t2\t3\t4\t5\t6\t7\t8\n" + CLOSING);
    std::string with_max = MODULES_HEAD;
    with_max.replace(with_max.find("Current bytes\t"), 14, "Current bytes\tMax bytes\t");
    scratch.write("mem_tbb_subsystem.b.log", with_max + "app\t1\t9\t2\t3\t4\t5\t6\t7\t8\n" + CLOSING);
    const auto folder = read(scratch);
    EXPECT_EQ(folder->runs[0].table("modules")->cells("max"), nullptr);
    EXPECT_THAT(*folder->runs[1].table("modules")->cells("max"), ElementsAre(9));
    for (const memview::Run& run : folder->runs)
        EXPECT_THAT(*run.table("modules")->cells("peak"), ElementsAre(2));
}

TEST(Reading, StatsInBytesAndMiB) {
    Scratch scratch;
    scratch.write("mem_tbb_pbin_tag_stats.a.log", STATS_HEAD + "Root\t1572864\t2\t3\t-4\n");
    scratch.write("mem_tbb_pbin_tag_stats_mb.a.log", STATS_MIB_HEAD + "Root\t1.500\t0.000\t12.007\t-0.004\n");
    const auto folder = read(scratch);
    EXPECT_THAT(*folder->runs[0].table("tags")->cells("current"), ElementsAre(-4));
    EXPECT_THAT(*folder->runs[0].table("tags_mb")->cells("max"), ElementsAre(1500));
    EXPECT_THAT(*folder->runs[0].table("tags_mb")->cells("cumulative"), ElementsAre(12007));
    EXPECT_THAT(*folder->runs[0].table("tags_mb")->cells("current"), ElementsAre(-4));
}

TEST(Reading, TimelinesKeepTheirExtremesWhateverTheirLength) {
    Scratch scratch;
    std::string text = TIMELINE_HEAD + "\tMisc\tapp\n";
    for (int i = 0; i < 1000; ++i) {
        text += "Other\t" + std::to_string(i == 777 ? 5000 : i) + "\t" + std::to_string(-i) + "\n";
    }
    scratch.write("mem_tbb_timeline.a.log", text + CLOSING);
    const auto folder = read(scratch);
    const Timeline& timeline = *folder->runs[0].timeline("timeline");
    EXPECT_EQ(timeline.samples, 1000u);
    EXPECT_EQ(timeline.series[0].highest, 5000);
    EXPECT_EQ(timeline.series[0].last, 999);
    EXPECT_EQ(timeline.series[1].highest, 0);
    EXPECT_EQ(timeline.series[1].last, -999);
    // 1000 samples in at most 128 equal stretches are 125 stretches of 8; 777 is in number 97.
    ASSERT_EQ(timeline.series[0].stretches.size(), 125u);
    EXPECT_EQ(timeline.series[0].stretches[97], 5000);
    EXPECT_EQ(timeline.series[0].stretches[96], 775);
}

TEST(Reading, AuxiliaryFiguresThatTheSystemRefusedAndThatWrapped) {
    Scratch scratch;
    scratch.write("mem_tbb_auxiliary_timeline.a.log",
                  AUXILIARY_HEAD +
                      "18446744073709551615\t18446744073709551615\t18446744073709551615\t1\t3\t18446744073709"
                      "551614\t5\t6\t7"
                      "\t8\n" +
                      CLOSING);
    const auto folder = read(scratch);
    const Timeline& timeline = *folder->runs[0].timeline("auxiliary_timeline");
    EXPECT_EQ(timeline.series[2].last, -1);
    EXPECT_EQ(timeline.series[5].last, -2);
}

TEST(Reading, LeaksWhoseNamesHoldTheWordsOfTheReport) {
    Scratch scratch;
    scratch.write(
        "mem_tbb_leak_warning.a.log",
        "MEM: TBB Leak Checking Summary.\n\n"
        "it leaked here leaked 70 bytes in 2 object(s) allocated at /a:b/c.cpp:12 f(int) leaked 3 bytes\n"
        "lib leaked 30 bytes in 1 object(s) allocated at Unknown:0 \n"
        "\nTotal leaked bytes: 100\n");
    const auto folder = read(scratch);
    const Table& leaks = *folder->runs[0].table("leaks");
    const auto text = [&](const char* column, std::size_t row) {
        return folder->names.text((*leaks.cells(column))[row]);
    };
    EXPECT_EQ(text("module", 0), "it leaked here");
    EXPECT_EQ(text("file", 0), "/a:b/c.cpp");
    EXPECT_EQ(text("function", 0), "f(int) leaked 3 bytes");
    EXPECT_EQ(text("function", 1), "");
    EXPECT_EQ(leaked_bytes(folder->runs[0]), 100);
}

TEST(Reading, FastLeakLogsBelongToTheOnlyProcessOrStandAlone) {
    Scratch scratch;
    scratch.write("mem_tbb_fast_leak_warning.log",
                  FAST_HEAD + fast_summary("/bin/one", 10, 500) + fast_summary("", 5, 70));
    EXPECT_EQ(read(scratch)->runs[0].name, "(shared leak log)");
    EXPECT_EQ(leaked_bytes(read(scratch)->runs[0]), 15);
    scratch.write("mem_tbb_fileline.a.log", sites(""));
    EXPECT_EQ(read(scratch)->runs[0].name, "a");
    EXPECT_EQ(leaked_bytes(read(scratch)->runs[0]), 15);
    scratch.write("mem_tbb_fileline.b.log", sites(""));
    EXPECT_EQ(read(scratch)->runs.size(), 3u);
}

TEST(Reading, TheSharedLeakFileHoldsEitherForm) {
    Scratch scratch;
    scratch.write(
        "veldrin_za_leak_warning.txt",
        "MEM: TBB Leak Checking Summary.\n\napp leaked 30 bytes in 1 object(s) allocated at /a.cpp:1 f()\n"
        "\nTotal leaked bytes: 30\n" +
            fast_summary("/bin/other", 4, 9));
    EXPECT_EQ(leaked_bytes(read(scratch)->runs[0]), 34);
}

TEST(Reading, FilteredFramesWithUnescapedNames) {
    Scratch scratch;
    scratch.write("mem_tbb_filters.a.log",
                  "\"PC\",\"module\",\"function\",\"fileline\"\n\"0x10\",\"stdc++\",\"f(\",\")\",\"/b.h:3\"\n"
                  "\"0x20\",\"tbb\",\"\",\"\"\n");
    const auto folder = read(scratch);
    const Table& filtered = *folder->runs[0].table("filtered");
    EXPECT_EQ(folder->names.text((*filtered.cells("function"))[0]), "f(\",\")");
    EXPECT_EQ(filtered.rows, 2u);
}

TEST(Reading, ProcessesAreToldApartAndChosen) {
    Scratch scratch;
    scratch.write("one/mem_tbb_fileline.a.log", sites(site(1, 10)));
    scratch.write("one/mem_tbb_fileline.b.log", sites(""));
    scratch.write("two/mem_tbb_fileline.a.log", sites(""));
    const auto all = read_folders({{scratch.path("one"), scratch.path("two")}, "", false});
    ASSERT_EQ(all->runs.size(), 3u);
    EXPECT_EQ(all->runs[0].name, scratch.path("one/a"));
    EXPECT_EQ(all->runs[1].name, "b");
    EXPECT_EQ(all->runs[2].name, scratch.path("two/a"));
    const auto chosen = read_folders({{scratch.path("one")}, "a", false});
    ASSERT_EQ(chosen->runs.size(), 1u);
    EXPECT_EQ(peak_bytes(chosen->runs[0]), 10);
    EXPECT_THAT(refusal({{scratch.path("one")}, "c", false}),
                HasSubstr("holds no process \"c\", only \"a\", \"b\""));
}

struct Broken {
    const char* what;
    std::string file;
    std::string text;
    std::string expected;  // behind the path of the file
};

const std::string FILELINE = "mem_tbb_fileline.bad.log";
const std::string LEAKS = "mem_tbb_leak_warning.bad.log";
const std::string STATS = "mem_tbb_pbin_tag_stats.bad.log";
const std::string TIMELINE = "mem_tbb_timeline.bad.log";
const std::string BEFORE_TAB = site(1, 10, "f(\tint)");
const std::string BINARY(
    "\x7f"
    "ELF\0\0\x01\xff\n\0",
    10);
const std::string LEAK_HEAD = "MEM: TBB Leak Checking Summary.\n\n";

const Broken BROKEN[] = {
    {"empty", FILELINE, "", ": the file is empty"},
    {"binary", FILELINE, BINARY, ":1: not this kind of report: it begins with \"?ELF"},
    {"no rows", FILELINE, SITES_HEAD, ":3: the file is cut: its closing line is missing"},
    {"cut in a row", FILELINE, SITES_HEAD + site(1, 10) + "0x2\t1\t2", ":5: the file is cut inside this row"},
    {"cut in its last digit", FILELINE, SITES_HEAD + site(1, 10).substr(0, site(1, 10).size() - 1),
     ":4: the file is cut inside this row"},
    {"cut in the head", FILELINE, SITES_HEAD.substr(0, 70), ":3: column \"Current bytes\" expected, found"},
    {"no empty line", FILELINE, "MEM: TBB Fileline Tracking Memory Snapshot. [at index 1]\nx\n",
     ":2: an empty line expected, found \"x\""},
    {"bad index", FILELINE, "MEM: TBB Fileline Tracking Memory Snapshot. [at index x]\n\n",
     ":1: unexpected title"},
    {"tab in a name", FILELINE, sites(BEFORE_TAB), ":4: 15 fields expected, found 16: a name holds a tab"},
    {"too few fields", FILELINE, sites("0x1\t2\n"), ":4: 15 fields expected, found 2"},
    {"no number", FILELINE, SITES_HEAD + "0x1\tmany" + site(1, 1).substr(5) + CLOSING,
     ":4: \"many\" is no value for column \"Current bytes\""},
    {"too large", STATS, STATS_HEAD + "Root\t1\t2\t9223372036854775808\t4\n",
     ":4: \"9223372036854775808\" is no value for column \"Cumulative bytes\""},
    {"two reports", FILELINE, sites("") + sites(""), ":6: text behind the closing line"},
    {"two reports mixed", FILELINE, SITES_HEAD + sites(""), ":4: a second report begins here"},
    {"cut stats", STATS, STATS_HEAD + "Root\t1\t2\t3\t45", ":4: the file is cut inside this row"},
    {"bad MiB", "mem_tbb_pbin_tag_stats_mb.bad.log", STATS_MIB_HEAD + "Root\t1.5\t0.000\t0.000\t0.000\n",
     ":4: \"1.5\" is no value for column \"Max MiB\""},
    {"short sample", TIMELINE, TIMELINE_HEAD + "\tMisc\ta\nx\t1\n" + CLOSING,
     ":4: 3 fields expected, found 2"},
    {"tab in a label", TIMELINE, TIMELINE_HEAD + "\tMisc\nx\ty\t1\n" + CLOSING,
     ":4: \"y\" is no number (series 1)"},
    {"timeline without end", TIMELINE, TIMELINE_HEAD + "\tMisc\nx\t1\n",
     ":4: the file is cut: its closing line"},
    {"wrong form", TIMELINE, DETAILED_HEAD + "\ta\n" + CLOSING, ":1: not this kind of report"},
    {"unknown figures", "mem_tbb_auxiliary_timeline.bad.log",
     "MEM: TBB Auxiliary Timeline\n\nfaults\n" + CLOSING, ":3: unknown columns \"faults\""},
    {"no leak row", LEAKS, LEAK_HEAD + "rubbish\n\nTotal leaked bytes: 0\n", ":3: no leak row: \"rubbish\""},
    {"leaks without total", LEAKS, LEAK_HEAD, ":2: the file is cut: its total is missing"},
    {"wrong total", LEAKS, LEAK_HEAD + "\nTotal leaked bytes: 5\n",
     ":4: the total is 5, but its rows hold 0"},
    {"cut summary", "mem_tbb_fast_leak_warning.log", FAST_HEAD + fast_summary("a", 1, 2).substr(0, 80),
     ":5: the summary is cut"},
    {"no filters", "mem_tbb_filters.bad.log", "\"PC\",\"module\",\"function\",\"fileline\"\nx\n",
     ":2: no row of four quoted fields: \"x\""}};

// Strict, the fault ends the reading; with keep-going it is told and the good file beside it is read.
TEST(Reading, BrokenFilesAreRefusedOrLeftOutWithFileLineAndReason) {
    for (const auto& [what, file, text, expected] : BROKEN) {
        SCOPED_TRACE(what);
        Scratch scratch;
        const std::string path = scratch.write(file, text);
        EXPECT_THAT(refusal({{scratch.path()}, "", false}), testing::StartsWith(path + expected));
        scratch.write("mem_tbb_fileline.good.log", sites(site(1, 10)));
        const auto folder = read(scratch, true);
        ASSERT_FALSE(folder->left_out.empty());
        EXPECT_THAT(folder->left_out[0], testing::StartsWith(path + expected));
        EXPECT_EQ(peak_bytes(folder->runs.back()), 10);
    }
}

TEST(Reading, FoldersAndFilesThatAreNone) {
    Scratch scratch;
    EXPECT_EQ(refusal({{scratch.path("none")}, "", false}), scratch.path("none") + ": no such folder");
    EXPECT_EQ(refusal({{scratch.path()}, "", false}),
              scratch.path() + ": holds no report files (mem_tbb_*.log)");
    const std::string file = scratch.write(FILELINE, sites(""));
    EXPECT_EQ(refusal({{file}, "", false}), file + ": is not a folder");
    EXPECT_THAT(refusal({{scratch.path(), scratch.path() + "/."}, "", false}), HasSubstr("is given twice"));
    scratch.write(FILELINE, "");
    EXPECT_THAT(refusal({{scratch.path()}, "", true}), HasSubstr("the file is empty"));
    std::filesystem::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(refusal({{scratch.path()}, "", false}), file + ": is not a regular file");
    std::filesystem::remove(file);
    scratch.write(FILELINE, "");
    std::filesystem::resize_file(file, std::uintmax_t{4} << 30);
    EXPECT_EQ(refusal({{scratch.path()}, "", false}), file + ":1: no line end within 64 MiB: not a report");
}

// Damage of any kind gives a result or a ReportError, never a crash.
TEST(Reading, DamageNeverCrashes) {
    const std::vector<std::pair<std::string, std::string>> good = {
        {FILELINE, sites(site(1, 10) + site(2, 20, "g()", 5))},
        {TIMELINE, TIMELINE_HEAD + "\tMisc\ta\nx\t1\t2\ny\t3\t4\n" + CLOSING},
        {LEAKS,
         LEAK_HEAD +
             "app leaked 30 bytes in 1 object(s) allocated at /a.cpp:1 f()\n\nTotal leaked bytes: 30\n"},
        {"mem_tbb_fast_leak_warning.log", FAST_HEAD + fast_summary("a", 1, 2)},
        {"mem_tbb_filters.bad.log",
         "\"PC\",\"module\",\"function\",\"fileline\"\n\"0x10\",\"a\",\"b\",\"c\"\n"},
        {"mem_tbb_pbin_tag_stats_mb.bad.log", STATS_MIB_HEAD + "Root\t1.500\t0.000\t12.007\t-0.004\n"}};
    std::mt19937 generator(7);
    const auto random = [&generator] { return static_cast<std::uint32_t>(generator()); };
    for (int round = 0; round < 1500; ++round) {
        const auto& [name, text] = good[round % good.size()];
        std::string damaged = text;
        for (std::uint32_t i = 0, n = 1 + random() % 3; i < n; ++i) {
            const std::size_t at = random() % damaged.size();
            if (random() % 3 == 0)
                damaged.resize(std::max<std::size_t>(at, 1));
            else if (random() % 2 == 0)
                damaged.erase(at, random() % 9);
            else
                damaged[at] = static_cast<char>(random());
            if (damaged.empty()) damaged = "\n";
        }
        Scratch scratch;
        scratch.write(name, damaged);
        refusal({{scratch.path()}, "", round % 2 == 0});
    }
}

}  // namespace
