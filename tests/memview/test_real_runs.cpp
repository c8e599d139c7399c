// The program on what real processes left behind.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/memview/program.h"
#include "tests/memview/reports.h"

namespace {

using namespace memview_test;
using nlohmann::json;
using testing::HasSubstr;

constexpr const char* THREADS =
    "import threading, json\\n"
    "def work():\\n"
    "    for i in range(40): json.loads(json.dumps({str(k): [k] * 50 for k in range(200)}))\\n"
    "threads = [threading.Thread(target=work) for _ in range(4)]\\n"
    "for one in threads: one.start()\\n"
    "for one in threads: one.join()\\n";

void track(const Scratch& scratch, const std::string& folder, const std::string& script) {
    const Outcome outcome =
        run(scratch, std::string(KTL_MEMRUN) + " --all --quiet --sample-period 500 -o " + folder +
                         " -- /usr/bin/python3 -c \"$(printf '" + script + "')\"");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
}

class RealRun : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        s_scratch = new Scratch;
        track(*s_scratch, "threads", THREADS);
        track(*s_scratch, "idle", "pass");
    }
    static void TearDownTestSuite() { delete s_scratch; }

    static Outcome memview(const std::string& arguments) {
        return run(*s_scratch, std::string(KTL_MEMVIEW) + " " + arguments);
    }

    static Scratch* s_scratch;
};

Scratch* RealRun::s_scratch = nullptr;

TEST_F(RealRun, IsTakenByEveryCommand) {
    for (const char* arguments : {"check threads", "check idle", "show threads", "diff threads threads",
                                  "html -o page.html threads", "check threads --max-peak 1T --max-leaked 1T",
                                  "export --format pprof -o p.gz threads && gzip -t p.gz"}) {
        const Outcome outcome = memview(arguments);
        EXPECT_EQ(outcome.status, 0) << arguments << outcome.out << outcome.err;
    }
    EXPECT_EQ(memview("check threads --max-peak 1").status, 1);
    EXPECT_THAT(memview("show threads").out,
                HasSubstr("Tracked: call sites, modules over time, bins and tags, leaks, process figures"));
}

TEST_F(RealRun, DiffersFromAnother) {
    const Outcome outcome = memview("diff idle threads --measure cumulative --json");
    EXPECT_EQ(outcome.status, 1) << outcome.err;
    const json totals = json::parse(outcome.out)["processes"][0]["totals"];
    ASSERT_EQ(totals.size(), 4u);  // sites, modules, bins and tags saw the same bytes
    for (const json& row : totals) EXPECT_EQ(row["change"], totals[0]["change"]);
    EXPECT_GT(totals[0]["change"], 0);
}

TEST_F(RealRun, ExportsTheSameFiguresInEveryForm) {
    const json all = json::parse(memview("export --format json threads").out)["processes"][0];
    const std::int64_t peak = all["totals"]["peak"];
    EXPECT_GT(peak, 0);
    std::int64_t collapsed = 0;
    std::istringstream lines(memview("export --format collapsed threads").out);
    for (std::string line; std::getline(lines, line);) collapsed += std::stoll(line.substr(line.rfind(' ')));
    EXPECT_EQ(collapsed, peak);
    EXPECT_EQ(json::parse(memview("export --format speedscope threads").out)["profiles"][0]["endValue"],
              peak);
}

}  // namespace
