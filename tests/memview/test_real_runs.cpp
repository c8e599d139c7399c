// The program on what a real process of several threads left behind.

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/memview/program.h"
#include "tests/memview/reports.h"

namespace {

using namespace memview_test;
using nlohmann::json;

constexpr const char* THREADS =
    "import threading, json\\n"
    "def work():\\n"
    "    for i in range(40): json.loads(json.dumps({str(k): [k] * 50 for k in range(200)}))\\n"
    "threads = [threading.Thread(target=work) for _ in range(4)]\\n"
    "for one in threads: one.start()\\n"
    "for one in threads: one.join()\\n";

TEST(RealRun, IsConsistentAndTakenByEveryCommand) {
    const Scratch scratch;
    const auto memview = [&](const std::string& arguments) {
        return run(scratch, KTL_MEMVIEW " " + arguments);
    };
    const Outcome tracked = run(
        scratch, KTL_MEMRUN " --all --quiet --sample-period 500 -o r -- /usr/bin/python3 -c \"$(printf '" +
                     std::string(THREADS) + "')\"");
    ASSERT_EQ(tracked.status, 0) << tracked.err;
    for (const char* arguments : {"check r --max-peak 1T --max-leaked 1T", "show r", "diff r r",
                                  "html -o page.html r", "export --format pprof -o p.gz r && gzip -t p.gz"}) {
        const Outcome outcome = memview(arguments);
        EXPECT_EQ(outcome.status, 0) << arguments << outcome.out << outcome.err;
    }
    EXPECT_THAT(
        memview("show r").out,
        testing::HasSubstr("Tracked: call sites, modules over time, bins and tags, leaks, process figures"));
    const std::int64_t peak =
        json::parse(memview("export --format json r").out)["processes"][0]["totals"]["peak"];
    EXPECT_GT(peak, 0);
    std::int64_t collapsed = 0;
    std::istringstream lines(memview("export --format collapsed r").out);
    for (std::string line; std::getline(lines, line);) collapsed += std::stoll(line.substr(line.rfind(' ')));
    EXPECT_EQ(collapsed, peak);
    EXPECT_EQ(json::parse(memview("export --format speedscope r").out)["profiles"][0]["endValue"], peak);
}

}  // namespace
