// The program itself, on folders made by hand.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/memview/program.h"
#include "tests/memview/reports.h"

namespace {

using namespace memview_test;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

Outcome memview(const Scratch& scratch, const std::string& arguments) {
    return run(scratch, KTL_MEMVIEW + std::string(" ") + arguments);
}

void write_leaks(const Scratch& scratch, const std::string& folder) {
    scratch.write(
        folder + "/mem_tbb_leak_warning.a.log",
        "MEM: TBB Leak Checking Summary.\n\napp leaked 30 bytes in 1 object(s) allocated at /src/a.cpp:1 "
        "work()\n"
        "lib leaked 70 bytes in 2 object(s) allocated at /src/b.cpp:9 known()\n\nTotal leaked bytes: 100\n");
}

TEST(Program, RefusesABadCommandLine) {
    Scratch scratch;
    EXPECT_EQ(memview(scratch, "").status, 2);
    EXPECT_EQ(memview(scratch, "show").status, 2);
    EXPECT_EQ(memview(scratch, "show . --sort colour").status, 2);
    EXPECT_THAT(memview(scratch, "check . --max-peak 2X").err, HasSubstr("\"2X\" is no amount"));
    EXPECT_THAT(memview(scratch, "show . --match '('").err, HasSubstr("holds no report files"));
    EXPECT_EQ(memview(scratch, "check . --max-site-growth 1%").status, 2);
    EXPECT_EQ(memview(scratch, "--help").status, 0);
    EXPECT_THAT(memview(scratch, "--version").out, testing::StartsWith("ktl_memview "));
}

TEST(Program, ShowSortsMatchesAndLimits) {
    Scratch scratch;
    scratch.write("r/mem_tbb_fileline.a.log",
                  sites(site(1, 1024, "low()") + site(2, 3072, "high()") + site(3, 2048, "mid\033()")));
    const Outcome all = memview(scratch, "show r");
    EXPECT_EQ(all.status, 0);
    EXPECT_THAT(all.out, HasSubstr("Recorded peak            6.0 KiB"));
    EXPECT_LT(all.out.find("high()"), all.out.find("mid?()"));
    EXPECT_LT(all.out.find("mid?()"), all.out.find("low()"));
    EXPECT_THAT(all.out, Not(HasSubstr("\033")));
    const Outcome named = memview(scratch, "show r --sort name --top 1");
    EXPECT_THAT(named.out, HasSubstr("(1 of 4, by name)"));
    const Outcome matched = memview(scratch, "show r --match 'lo|mi'");
    EXPECT_THAT(matched.out, HasSubstr("(2 of 2 matching, by peak)"));
    EXPECT_THAT(matched.out, Not(HasSubstr("high()")));
    EXPECT_EQ(memview(scratch, "show r --match '('").status, 2);
}

TEST(Program, TellsFaultsAndWhatWasLeftOut) {
    Scratch scratch;
    scratch.write("r/mem_tbb_fileline.a.log", sites(site(1, 10) + "0x2\tx\n" + site(3, 20)));
    const Outcome strict = memview(scratch, "show r");
    EXPECT_EQ(strict.status, 2);
    EXPECT_EQ(strict.out, "");
    EXPECT_EQ(strict.err, "ktl_memview: r/mem_tbb_fileline.a.log:5: 15 fields expected, found 2\n");
    const Outcome kept = memview(scratch, "export --format json --keep-going r");
    EXPECT_EQ(kept.status, 0);
    EXPECT_THAT(kept.err, HasSubstr("left out: r/mem_tbb_fileline.a.log:5: "));
    const json data = json::parse(kept.out);
    EXPECT_EQ(data["left_out"].size(), 1u);
    EXPECT_EQ(data["processes"][0]["totals"]["peak"], 30);
    EXPECT_EQ(memview(scratch, "html -o page.html --keep-going r").status, 0);
    EXPECT_EQ(memview(scratch, "html -o /nonexistent/page.html --keep-going r").status, 2);
    EXPECT_EQ(memview(scratch, "show --keep-going r >/dev/full").status, 2);
}

// work() moved from lines 5 and 9 to 7 and 11 and kept its bytes; grow() has more; came() and went() have one
// side.
TEST(Program, DiffMatchesLinesThatMoved) {
    Scratch scratch;
    scratch.write("a/mem_tbb_fileline.x.log",
                  sites(site(5, 100) + site(9, 200) + site(20, 1000, "grow()") + site(30, 7, "went()")));
    scratch.write("b/mem_tbb_fileline.y.log",
                  sites(site(7, 100) + site(11, 200) + site(20, 1500, "grow()") + site(31, 9, "came()")));
    const Outcome outcome = memview(scratch, "diff a b --json");
    EXPECT_EQ(outcome.status, 1);
    const json data = json::parse(outcome.out);
    EXPECT_EQ(data["version"], 1);
    const json& process = data["processes"][0];
    EXPECT_EQ(process["totals"][0]["change"], 502);
    std::vector<std::pair<std::string, int>> changes;
    for (const json& row : process["sites"]) changes.emplace_back(row["function"], row["change"]);
    EXPECT_THAT(changes, testing::ElementsAre(std::pair("grow()", 500), std::pair("came()", 9),
                                              std::pair("went()", -7)));
    EXPECT_EQ(memview(scratch, "diff a b --tolerance 500").status, 1);  // the totals differ by 502
    EXPECT_EQ(memview(scratch, "diff a b --tolerance 502").status, 0);
    EXPECT_EQ(memview(scratch, "diff a a").status, 0);
    EXPECT_EQ(memview(scratch, "diff a none").status, 2);
    EXPECT_THAT(memview(scratch, "diff a b").out, HasSubstr("+50.0 %"));
    EXPECT_THAT(memview(scratch, "diff a b --html").out, HasSubstr("\"key\":\"change\""));
}

TEST(Program, DiffSaysWhatOnlyOneSideHas) {
    Scratch scratch;
    scratch.write("a/mem_tbb_fileline.x.log", sites(site(5, 100)));
    scratch.write("b/mem_tbb_fileline.x.log", sites(site(5, 100)));
    scratch.write("b/mem_tbb_pbin_tag_stats.x.log", STATS_HEAD + "Root\t1\t2\t3\t4\n");
    EXPECT_THAT(memview(scratch, "diff a b").err,
                HasSubstr("the tags were not compared: only the run after has them"));
    scratch.write("b/mem_tbb_fileline.z.log", sites(site(5, 100)));
    const Outcome outcome = memview(scratch, "diff a b");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("process \"z\" is only in the run after"));
}

TEST(Program, CheckHoldsARunAgainstLimits) {
    Scratch scratch;
    scratch.write("r/mem_tbb_fileline.a.log", sites(site(1, 1000, "work()", 30) + site(2, 500)));
    scratch.write("old/mem_tbb_fileline.a.log", sites(site(1, 950) + site(2, 500)));
    scratch.write("known", "leak:^known\n");
    struct Case {
        const char* arguments;
        int status;
        const char* said;
    };
    const Case CASES[] = {
        {"", 0, "ok      a: "},
        {"--max-peak 1500", 0, "ok      a: peak 1500 bytes"},
        {"--max-peak 1499", 1, "FAILED  a: peak 1500 bytes"},
        {"--max-peak 1 --exit-code 9", 9, "FAILED"},
        {"--max-leaked 0", 2, ""},
        {"--max-site-growth 5% --baseline old", 1, "950 B -> 1000 B: app /src/a.cpp:1 work()"},
        {"--max-site-growth 6% --baseline old", 0, "grown beyond the limit: 0"},
        {"--max-site-growth 6% --baseline none", 2, ""},
    };
    for (const Case& one : CASES) {
        const Outcome outcome = memview(scratch, std::string("check r ") + one.arguments);
        EXPECT_EQ(outcome.status, one.status) << one.arguments << outcome.out << outcome.err;
        EXPECT_THAT(outcome.out, HasSubstr(one.said));
    }
    write_leaks(scratch, "leaks");
    EXPECT_THAT(memview(scratch, "check leaks --max-leaked 0").out, HasSubstr("FAILED  a: leaked 100 bytes"));
    EXPECT_THAT(memview(scratch, "check leaks --max-leaked 0 --allow known").out,
                HasSubstr("30 bytes, 1 blocks: app /src/a.cpp:1"));
    EXPECT_EQ(memview(scratch, "check leaks --max-leaked 30 --allow known").status, 0);
    EXPECT_EQ(memview(scratch, "check leaks --max-leaked 0 --allow nofile").status, 2);
}

TEST(Program, CheckNamesEveryDisagreement) {
    Scratch scratch;
    scratch.write("r/mem_tbb_fileline.a.log", sites(site(1, 100, "work()", 30)));
    scratch.write("r/mem_tbb_subsystem.a.log",
                  MODULES_HEAD + "app\t30\t101\t200\t100\t0\t1\t1\t2\n" + CLOSING);
    scratch.write("r/mem_tbb_pbin_tag_stats.a.log", STATS_HEAD + "Root\t100\t100\t200\t31\n");
    scratch.write("r/mem_tbb_pbin_tag_stats_mb.a.log", STATS_MIB_HEAD + "Root\t0.000\t0.000\t0.001\t0.000\n");
    scratch.write("r/mem_tbb_timeline.a.log",
                  TIMELINE_HEAD + "\tMisc\tapp\nOther\t0\t5\nOther\t0\t30\n" + CLOSING);
    scratch.write("r/mem_tbb_timeline_detailed.a.log",
                  DETAILED_HEAD + "\tAPP\nOther\t6\nOther\t30\n" + CLOSING);
    write_leaks(scratch, "r");
    const Outcome outcome = memview(scratch, "check r");
    EXPECT_EQ(outcome.status, 1);
    for (const char* line :
         {"peak of module app: call sites 100, module row 101", "current of all: call sites 30, tags 31",
          "cumulative of tags row 1 (Root): bytes 200, MiB 0.001",
          "bytes held at the end by lib /src/b.cpp:9 known(): call site 0, leak report 70",
          "timeline, sum of sample 0: plain form 5, detailed form 6"}) {
        EXPECT_THAT(outcome.out, HasSubstr(line));
    }
    EXPECT_THAT(outcome.out, HasSubstr(" 5 disagree"));
}

TEST(Program, ExportsCallSitesInEveryForm) {
    Scratch scratch;
    scratch.write("r/mem_tbb_fileline.a.log", sites(site(1, 100, "f(\"a,b\");", 30) + site(2, 50)));
    EXPECT_THAT(
        memview(scratch, "export --format csv r").out,
        HasSubstr(
            "Function\n0x1,30,100,100,200,100,0,1,1,1,2,app,/src/a.cpp,1,\"f(\"\"a,b\"\");\"\n0x2,0,50,"));
    EXPECT_EQ(memview(scratch, "export --format collapsed r").out,
              "app;/src/a.cpp;f(\"a,b\"),:1 100\napp;/src/a.cpp;work():2 50\n");
    const json scope = json::parse(memview(scratch, "export --format speedscope r").out);
    const json& profile = scope["profiles"][0];
    EXPECT_EQ(profile["endValue"], 150);
    ASSERT_EQ(profile["samples"].size(), profile["weights"].size());
    EXPECT_EQ(scope["shared"]["frames"][profile["samples"][0][2].get<std::size_t>()]["name"], "f(\"a,b\");");
    const Outcome pprof =
        memview(scratch, "export --format pprof -o p.gz r && gzip -dc p.gz | grep -c peak_space");
    EXPECT_EQ(pprof.out, "1\n");
    EXPECT_EQ(memview(scratch, "export --format csv --table bins r").status, 2);
    EXPECT_EQ(memview(scratch, "export --format xml r").status, 2);
}

}  // namespace
