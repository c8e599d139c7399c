// The program itself, on folders made by hand and on what a real process left.

#include <gmock/gmock.h>

#include <sys/wait.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "tests/memview/reports.h"
#include "tools/memview/units.h"

namespace {

using namespace memview_test;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

const std::string FILELINE = "mem_tbb_fileline.a.log";

struct Outcome {
    int status;
    std::string said;  // on both streams
};

class Program : public testing::Test {
  protected:
    // A command line of the shell, in the scratch folder.
    Outcome run(const std::string& command_line) {
        FILE* pipe = ::popen(("cd " + m_scratch.path() + " && { " + command_line + "; } 2>&1").c_str(), "r");
        std::string said;
        for (int letter = 0; (letter = std::fgetc(pipe)) != EOF;) said += static_cast<char>(letter);
        return {WEXITSTATUS(::pclose(pipe)), said};
    }
    Outcome memview(const std::string& arguments) { return run(KTL_MEMVIEW " " + arguments); }
    json exported(const std::string& arguments) {
        return json::parse(memview("export --format " + arguments + " 2>/dev/null").said);
    }

    struct Case {
        const char* arguments;
        int status;
        const char* said;
    };
    void expect(std::initializer_list<Case> cases) {
        for (const auto& [arguments, status, said] : cases) {
            const Outcome outcome = memview(arguments);
            EXPECT_EQ(outcome.status, status) << arguments;
            EXPECT_THAT(outcome.said, HasSubstr(said)) << arguments;
        }
    }

    void write_leaks(const std::string& folder) {
        m_scratch.write(folder + "/mem_tbb_leak_warning.a.log",
                        LEAK_HEAD +
                            "app leaked 30 bytes in 1 object(s) allocated at /src/a.cpp:1 work()\n"
                            "lib leaked 70 bytes in 2 object(s) allocated at /src/b.cpp:9 known()\n\n"
                            "Total leaked bytes: 100\n");
    }

    Scratch m_scratch;
};

TEST_F(Program, RefusesABadCommandLine) {
    expect({{"", 2, "subcommand is required"},
            {"show", 2, "DIR is required"},
            {"show . --sort colour", 2, "--sort"},
            {"check . --max-peak 2X", 2, "\"2X\" is no amount"},
            {"check . --max-site-growth 1%", 2, "--baseline"},
            {"check . --baseline old", 2, "--baseline requires --max-site-growth"},
            {"check . --allow known", 2, "--allow requires --max-leaked"},
            {"check . --max-peak 10%", 2, "is a share"},
            {"check . --max-peak 9999999999T", 2, "more than any report can hold"},
            {"diff .", 2, "AFTER is required"},
            {"--help", 0, "Usage: ktl_memview"},
            {"--version", 0, "ktl_memview "}});
}

TEST_F(Program, ShowSortsMatchesAndLimits) {
    m_scratch.write("r/" + FILELINE,
                    sites(site(1, 1024, "low()") + site(2, 3072, "high()") + site(3, 2048, "mid\033()")));
    const std::string all = memview("show r").said;
    EXPECT_THAT(all, testing::ContainsRegex("Recorded peak +6.0 KiB"));
    EXPECT_LT(all.find("high()"), all.find("mid?()"));
    EXPECT_LT(all.find("mid?()"), all.find("low()"));
    EXPECT_THAT(all, Not(HasSubstr("\033")));
    EXPECT_THAT(memview("show r --match 'lo|mi'").said, Not(HasSubstr("high()")));
    expect({{"show r --sort name --top 1", 0, "(1 of 4, by name)"},
            {"show r --match 'lo|mi' --top 1", 0, "(1 of 2 matching, by peak)"},
            {"show r --match '('", 2, "is no extended regular expression"}});
}

TEST_F(Program, TellsFaultsAndWhatWasLeftOut) {
    m_scratch.write("old.csv", "of an earlier run");
    m_scratch.write("r/" + FILELINE, sites(site(1, 10) + "0x2\tx\n" + site(3, 20)));
    EXPECT_EQ(memview("show r").status, 2);
    EXPECT_EQ(memview("show r >/dev/null").said,
              "ktl_memview: r/mem_tbb_fileline.a.log:5: 15 fields expected, found 2\n");
    const json data = exported("json --keep-going r");
    EXPECT_EQ(data["left_out"].size(), 1u);
    EXPECT_EQ(data["processes"][0]["totals"]["peak"], 30);
    expect(
        {{"html -o page.html --keep-going r", 0, "left out: r/mem_tbb_fileline.a.log:5: "},
         {"html -o /nonexistent/page.html --keep-going r", 2, "cannot be written"},
         {"check --keep-going r", 2, "0 disagree"},
         {"export --format csv --table bins --keep-going -o old.csv r; cat old.csv", 0, "of an earlier run"},
         {"html -o r/mem_tbb_fileline.a.log --keep-going r", 2, "is a report"},
         {"export --format csv --keep-going -o r/../r/mem_tbb_fileline.a.log r", 2, "is a report"},
         {"show --keep-going r >/dev/full", 2, "cannot be written"}});
    EXPECT_THAT(run("cat r/*.log").said, HasSubstr("MEM: TBB Fileline"));
    const std::string whole = sites(site(1, 10));
    m_scratch.write("s/" + FILELINE, whole);
    m_scratch.write("s/ktl_memrun.sizes", std::to_string(whole.size()) + " " + FILELINE + "\n");
    expect({{"check s", 0, "0 disagree"}});
    m_scratch.write("s/ktl_memrun.sizes",
                    std::to_string(whole.size() + 1) + " " + FILELINE + "\n9 mem_tbb_gone.a.log\n");
    expect({{"check s", 2, "mem_tbb_fileline.a.log: is cut"}, {"check --keep-going s", 2, "is missing"}});
}

// work() moved from lines 5 and 9 to 7 and 11 and kept its bytes; grow() has more; came() and went() have one
// side; and still() has a line without bytes before, which must not be taken for one that came.
TEST_F(Program, DiffMatchesLinesThatMoved) {
    m_scratch.write("a/mem_tbb_fileline.x.log",
                    sites(site(5, 100) + site(9, 200) + site(20, 1000, "grow()") + site(30, 7, "went()") +
                          site(40, 0, "still()") + site(41, 3, "still()")));
    m_scratch.write("b/mem_tbb_fileline.y.log",
                    sites(site(7, 100) + site(11, 200) + site(20, 1500, "grow()") + site(31, 9, "came()") +
                          site(40, 3, "still()")));
    const json data = json::parse(memview("diff a b --json").said);
    EXPECT_EQ(data["version"], 1);
    const json& process = data["processes"][0];
    EXPECT_EQ(process["totals"][0]["change"], 502);
    std::vector<std::pair<std::string, int>> changes;
    for (const json& row : process["sites"]) changes.emplace_back(row["function"], row["change"]);
    EXPECT_THAT(changes, testing::ElementsAre(std::pair("grow()", 500), std::pair("came()", 9),
                                              std::pair("went()", -7), std::pair("still()", 3),
                                              std::pair("still()", -3)));
    expect({{"diff a b --tolerance 500", 1, "502 B"},  // of the totals
            {"diff a b --tolerance 502", 0, "no difference beyond the tolerance"},
            {"diff a a", 0, "no difference"},
            {"diff a none", 2, "no such folder"},
            {"diff a b", 1, "+50.0 %"},
            {"diff a b --html", 1, "\"key\":\"change\""}});
}

TEST_F(Program, DiffSaysWhatOnlyOneSideHas) {
    m_scratch.write("a/" + FILELINE, sites(site(5, 100)));
    m_scratch.write("b/" + FILELINE, sites(site(5, 100)));
    m_scratch.write("b/mem_tbb_pbin_tag_stats.a.log", STATS_HEAD + "Root\t1\t2\t3\t4\n");
    expect({{"diff a b", 0, "the tags were not compared: only the run after has them"}});
    m_scratch.write("b/mem_tbb_fileline.z.log", sites(site(5, 100)));
    expect({{"diff a b", 1, "process \"z\" is only in the run after"}});
}

// As those are that a followed program starts: the second names differ by the process number.
TEST_F(Program, PairsProcessesWhoseNumbersDiffer) {
    for (const char* name : {"old/mem_tbb_fileline.g.c.99.log", "new/mem_tbb_fileline.g.c.101.log"})
        m_scratch.write(name, sites(site(1, 100)));
    for (const char* name : {"old/mem_tbb_fileline.g.c.100.log", "new/mem_tbb_fileline.g.c.102.log"})
        m_scratch.write(name, sites(site(1, 200)));
    expect({{"diff old new", 0, "g.c.99 → g.c.101: peak bytes, no difference"},
            {"check new --max-site-growth 0 --baseline old", 0, "g.c.100 → g.c.102: call sites grown"}});
    m_scratch.write("new/mem_tbb_fileline.g.c.103.log", sites(site(1, 200)));
    expect({{"check new --max-site-growth 0 --baseline old", 2, "does not hold all processes"}});
}

// It frees nothing, so that it records no peak.
TEST_F(Program, TakesARunThatOnlyGrowsAtItsEnd) {
    m_scratch.write("small/" + FILELINE, sites(site(1, 0, "grow()", 10)));
    m_scratch.write("large/" + FILELINE, sites(site(1, 0, "grow()", 5000)));
    expect({{"check large --max-peak 4999", 1, "peak 5000 bytes (4.9 KiB, held at the end)"},
            {"diff small large", 1, "+4.9 KiB"},
            {"check large --max-site-growth 10% --baseline small", 1, "grown beyond the limit: 1"}});
}

TEST_F(Program, CheckHoldsARunAgainstLimits) {
    m_scratch.write("r/" + FILELINE, sites(site(1, 1000, "work()", 30) + site(2, 500)));
    m_scratch.write("old/" + FILELINE, sites(site(1, 950) + site(2, 500)));
    m_scratch.write("known", "leak:^known\n");
    const std::string known = "0x9\t70\t70\t70\t70\t70\t0\t2\t2\t2\t2\tlib\t/src/b.cpp\t9\tknown()\n";
    const std::string nobodys = "OTHER\t5\t5\t5\t5\t5\t0\t1\t1\t1\t1\t\t\t0\t\n";
    write_leaks("leaks");
    m_scratch.write("leaks/" + FILELINE, sites(site(1, 30, "work()", 30) + known));
    m_scratch.write("other/" + FILELINE, SITES_HEAD + nobodys + CLOSING);
    m_scratch.write("other/mem_tbb_leak_warning.a.log", LEAK_HEAD + "\nTotal leaked bytes: 0\n");
    write_leaks("alone");
    m_scratch.write("below/" + FILELINE, sites(site(1, 0, "work()", -70)));
    expect({{"show below", 0, "Held at the end: Below zero, since blocks came off"}});
    m_scratch.write("all", "leak:known\nleak:OTHER\n");
    expect({{"check r", 0, "ok      a: "},
            {"check r --max-peak 1500", 0, "ok      a: peak 1500 bytes"},
            {"check r --max-peak 1499", 1, "FAILED  a: peak 1500 bytes"},
            {"check r --max-peak 1 --exit-code 9", 9, "FAILED"},
            {"check r --max-leaked 0", 2, "holds no leak report"},
            {"check r --max-site-growth 5% --baseline old", 1, "950 B -> 1000 B: app /src/a.cpp:1 work()"},
            {"check r --max-site-growth 6% --baseline old", 0, "grown beyond the limit: 0"},
            {"check r --max-site-growth 6% --baseline none", 2, "no such folder"},
            {"check leaks --max-leaked 0", 1, "FAILED  a: leaked 100 bytes"},
            {"check leaks --max-leaked 0 --allow known", 1, "30 bytes, 1 blocks: app /src/a.cpp:1"},
            {"check leaks --max-leaked 30 --allow known", 0, "suppressed 70 B"},
            {"check other --max-leaked 0", 1, "5 bytes that no call site answers for: OTHER"},
            {"check other --max-leaked 0 --allow all", 0, "leak:known matched nothing"},
            {"check alone --max-leaked 1T", 2, "holds no call sites"},
            {"check leaks --max-leaked 0 --allow nofile", 2, "cannot be opened"}});
}

TEST_F(Program, CheckNamesEveryDisagreement) {
    m_scratch.write("r/" + FILELINE, sites(site(1, 100, "work()", 30)));
    m_scratch.write("r/mem_tbb_subsystem.a.log",
                    MODULES_HEAD + "app\t30\t101\t101\t200\t100\t0\t1\t1\t2\n" + CLOSING);
    m_scratch.write("r/mem_tbb_pbin_tag_stats.a.log", STATS_HEAD + "Root\t100\t100\t200\t31\n");
    m_scratch.write("r/mem_tbb_pbin_tag_stats_mb.a.log",
                    STATS_MIB_HEAD + "Root\t0.000\t0.000\t0.001\t0.000\n");
    m_scratch.write("r/mem_tbb_timeline.a.log", TIMELINE_HEAD + "\tMisc\tapp\nx\t0\t5\nx\t0\t30\n" + CLOSING);
    m_scratch.write("r/mem_tbb_timeline_detailed.a.log", DETAILED_HEAD + "\tAPP\nx\t6\nx\t30\n" + CLOSING);
    write_leaks("r");
    expect({{"check r", 1, "peak of module app: call sites 100, module row 101"},
            {"check r", 1, "current of all: call sites 30, tags 31"},
            {"check r", 1, "cumulative of tags row 1 (Root): bytes 200, MiB 0.001"},
            {"check r", 1, "bytes held at the end by lib /src/b.cpp:9 known(): call site 0, leak report 70"},
            {"check r", 1, "timeline, sum of sample 0: plain form 5, detailed form 6"},
            {"check r", 1, " 5 disagree"}});
}

// A reset begins the tags and their timeline anew, and leaves bins and clock as they are.
TEST_F(Program, CheckHoldsBinsAgainstTagsUpToAReset) {
    m_scratch.write("r/mem_tbb_pbin_stats.a.log", head("pbin_stats", 3) + "Root\t100\t100\t200\t31\n");
    m_scratch.write("r/mem_tbb_pbin_tag_stats.a.log", STATS_HEAD + "Root\t90\t90\t150\t30\n");
    m_scratch.write("r/mem_tbb_pbin_tag_timeline_detailed.a.log",
                    DETAILED_HEAD + "\tRoot\nRoot\t30\n" + CLOSING);
    const std::string clock =
        "MEM: Clock.\n\nStart\t5.000\nProcess\t7\nParent\t1\n\nSample\tMilliseconds\tEvent\n";
    m_scratch.write("r/mem_tbb_clock.a.log", clock + "0\t10\t4\n" + CLOSING);
    expect({{"check r", 1, "cumulative of all: bins 200, tags 150"}, {"check r", 1, " 3 disagree"}});
    m_scratch.write("r/mem_tbb_clock.a.log", clock + "0\t10\t4\n1\t20\t8\n" + CLOSING);
    expect({{"check r", 0, "note    a: bins count from before a reset"}});
}

TEST_F(Program, ExportsCallSitesInEveryForm) {
    m_scratch.write("r/" + FILELINE, sites(site(1, 100, "f(\"a,b\");", 30) + site(2, 50, "g\\()")));
    EXPECT_EQ(memview("export --format collapsed r").said,
              "app;/src/a.cpp;f(\"a,b\"),:1 100\napp;/src/a.cpp;g\\():2 50\n");
    const json scope = exported("speedscope r");
    const json& profile = scope["profiles"][0];
    EXPECT_EQ(profile["endValue"], 150);
    EXPECT_EQ(profile["weights"], json({100, 50}));
    std::vector<std::string> frames;
    for (const std::size_t frame : profile["samples"][0])
        frames.push_back(scope["shared"]["frames"][frame]["name"]);
    EXPECT_THAT(frames, testing::ElementsAre("app", "/src/a.cpp", "f(\"a,b\");"));
    const json rows = exported("json r")["processes"][0]["sites"];
    EXPECT_EQ(rows[0]["function"], "f(\"a,b\");");
    EXPECT_EQ(rows[1]["function"], "g\\()");
    expect({{"export --format csv r", 0,
             "Function\n0x1,30,100,100,200,100,0,1,1,1,2,app,/src/a.cpp,1,\"f(\"\"a,b\"\");\"\n0x2,0,50,"},
            {"export --format pprof -o p.gz r && gzip -dc p.gz | grep -c peak_space", 0, "1\n"},
            {"export --format csv --table bins r", 2, "holds no table \"bins\""},
            {"export --format xml r", 2, "--format"}});
}

// Sites that agree with the nodes of paths(): OTHER has 100, work() 1200 in 12 blocks.
const std::string SITES_OF_PATHS =
    SITES_HEAD + "0x1\t30\t800\t600\t1200\t1150\t0\t1\t8\t6\t12\tapp\t/src/a.cpp\t1\twork()\n" +
    "OTHER\t0\t100\t50\t100\t90\t0\t0\t1\t1\t1\t\t\t0\t\n" + CLOSING;

TEST_F(Program, CallPathsGiveTreeStacksAndTheExactPeak) {
    m_scratch.write("r/" + FILELINE, SITES_OF_PATHS);
    m_scratch.write("r/mem_tbb_call_paths.a.log", paths());
    const std::string push = "std::vector<int, std::allocator<int> >::push_back(int)";
    EXPECT_EQ(memview("export --format collapsed r").said,
              "main 100\nmain;work();" + push + " 300\nwork();" + push + " 500\n");
    const json scope = exported("speedscope r");
    EXPECT_EQ(scope["profiles"][0]["weights"], json({100, 300, 500}));
    EXPECT_EQ(scope["profiles"][0]["samples"][1], json({0, 1, 2}));
    EXPECT_EQ(scope["shared"]["frames"][2]["line"], 7);
    EXPECT_EQ(exported("json r")["processes"][0]["totals"]["exact_peak"], 900);
    EXPECT_EQ(memview("show --tree --top 3 r").said,
              "a: Peak bytes by who called for them  (3 of 4 places)\n"
              "           SHARE  PATH      PLACE\n"
              "  900 B  100.0 %  all\n"
              "  500 B   55.6 %  ├ work()  /src/a.cpp:1\n"
              "  400 B   44.4 %  └ main    /src/m.cpp:3\n");
    expect({{"show r", 0, "Recorded peak           650 B"},
            {"show r", 0, "\n  800 B     30 B     1.2 KiB"},
            {"show --tree --sort max r", 2, "call paths have no figure \"max\""},
            {"show --tree --match x r", 2, "excludes"},
            {"export --format collapsed --measure max r", 0, "app;/src/a.cpp;work():1 800\n"},
            {"check --max-peak 900 r", 0, "ok      a: peak 900 bytes (900 B), allowed"},
            {"check r", 0, " 0 disagree"}});
    m_scratch.write("r/" + FILELINE,
                    std::regex_replace(SITES_OF_PATHS, std::regex("\t12\tapp"), "\t13\tapp"));
    expect({{"check r", 1, "cumulative_blocks of call site 0x1: call paths 12, call site 13 (-1 apart)"}});
}

// A block that was freed, but whose allocation was not seen, has no row among the modules.
TEST_F(Program, CheckTakesWhatTheModulesLeaveOut) {
    m_scratch.write("r/" + FILELINE, SITES_HEAD + site(1, 100) +
                                         "OTHER\t-96\t0\t-96\t0\t0\t0\t-1\t0\t-1\t0\t\t\t0\t\n" + CLOSING);
    m_scratch.write("r/mem_tbb_subsystem.a.log",
                    MODULES_HEAD + "app\t0\t100\t100\t200\t100\t0\t0\t1\t2\n" + CLOSING);
    m_scratch.write("r/mem_tbb_timeline_detailed.a.log",
                    DETAILED_HEAD + "\tOTHER\tapp\nx\t-96\t0\n" + CLOSING);
    expect({{"check r", 0, " 0 disagree"}});
}

// At the peak work() called by main has 50 more, and main itself nothing any more.
TEST_F(Program, DiffComparesPaths) {
    m_scratch.write("a/mem_tbb_call_paths.a.log", paths());
    m_scratch.write(
        "b/mem_tbb_call_paths.a.log",
        paths(FRAME_ROWS,
              std::regex_replace(std::regex_replace(NODE_ROWS, std::regex("\t100\t1\t100"), "\t0\t0\t100"),
                                 std::regex("\t300\t3"), "\t350\t3")));
    for (const char* folder : {"a/", "b/"}) m_scratch.write(folder + FILELINE, SITES_OF_PATHS);
    const json rows = json::parse(memview("diff a b --json").said)["processes"][0]["paths"];
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0], json({{"name", "main"}, {"before", 100}, {"after", 0}, {"change", -100}}));
    EXPECT_EQ(rows[1], json({{"name", "main;work()"}, {"before", 300}, {"after", 350}, {"change", 50}}));
    expect({{"diff a b", 1, "+16.7 %  main > work()"}, {"diff a b --html", 1, "\"comparison\":true"}});
}

// No row is wider than the terminal, however narrow it is and however long the names are.
TEST_F(Program, RowsFitTheTerminal) {
    std::string wide = "a::";
    for (int i = 0; i < 150; ++i) wide += "名";
    m_scratch.write("r/" + FILELINE,
                    sites(site(1, 1024, "a::" + std::string(300, 'x') + "()") + site(3, 1024, wide + "()") +
                          site(2, 5, "std::vector<int, std::allocator<int> >::f()")));
    m_scratch.write("r/mem_tbb_call_paths.a.log", paths());
    m_scratch.write("b/" + FILELINE, sites(site(1, 2000, "a::" + std::string(300, 'x') + "()")));
    for (const char* columns : {"20", "60", "100", "200"}) {
        for (const char* command : {"show r", "show --tree r", "diff r b"}) {
            std::istringstream lines(
                run(std::string("COLUMNS=") + columns + " " KTL_MEMVIEW " " + command).said);
            for (std::string line; std::getline(lines, line);) {
                const bool is_row = line.starts_with("  ") && line.find("Tracked:") == std::string::npos;
                EXPECT_LE(memview::display_width(line), is_row ? std::stoul(columns) : 400) << command << "\n"
                                                                                            << line;
            }
        }
    }
    expect({{"show r", 0, "std::vector<int>::f()"},
            {"show --full-names r", 0, "std::vector<int, std::allocator<int> >::f()"}});
}

TEST_F(Program, AgreesWithARealRunOfSeveralThreads) {
    m_scratch.write("threads.py",
                    "import threading, json\n"
                    "def work():\n"
                    "    for i in range(40): json.loads(json.dumps({str(k): [k] * 50 for k in range(200)}))\n"
                    "threads = [threading.Thread(target=work) for _ in range(4)]\n"
                    "for one in threads: one.start()\n"
                    "for one in threads: one.join()\n");
    const Outcome tracked =
        run(KTL_MEMRUN " --all --quiet --sample-period 500 -o r -- /usr/bin/python3 threads.py");
    ASSERT_EQ(tracked.status, 0) << tracked.said;
    expect({{"check r --max-peak 1T --max-leaked 1T", 0, " 0 disagree"},
            {"show r", 0,
             "Tracked: call sites, modules over time, bins and tags, leaks, call paths, process figures"},
            {"diff r r", 0, "no difference"},
            {"html -o page.html r", 0, ""},
            {"export --format pprof -o p.gz r && gzip -t p.gz", 0, ""}});
    const std::int64_t peak = exported("json r")["processes"][0]["totals"]["exact_peak"];
    EXPECT_GT(peak, 0);
    std::int64_t collapsed = 0;
    std::istringstream lines(memview("export --format collapsed r").said);
    for (std::string line; std::getline(lines, line);) collapsed += std::stoll(line.substr(line.rfind(' ')));
    EXPECT_EQ(collapsed, peak);
    EXPECT_EQ(exported("speedscope r")["profiles"][0]["endValue"], peak);
}

}  // namespace
