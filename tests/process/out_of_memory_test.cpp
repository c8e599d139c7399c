#include "tests/process/child_process.h"

const std::string run_out = "prlimit --as=1073741824 ending_host run_out ";
const std::string tracked = with_allocator + track_all;

// The one line. A process whose address space ends at one gibibyte has used 1073 million bytes.
const std::string line_of_any = "\nOut of memory \\([1-9][0-9]* megabytes used\\)\n";
const std::string line_at_limit = "\nOut of memory \\(10[0-7][0-9] megabytes used\\)\n";
const std::string line_of_sixteen = "\nOut of memory \\((9[0-9]|10[0-7])[0-9] megabytes used\\)\n";

TEST(OutOfMemory, EndsInOneForm) {
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"new none 0", "exit action\n", line_at_limit},  {"new none 1", "exit action\n", line_at_limit},
        {"new returns 0", "handler\nexit action\n", ""}, {"new throws 1", "handler\nexit action\n", ""},
        {"new again 0", "handler\nexit action\n", ""},   {"new allocates 1", "handler\nexit action\n", ""},
        {"call none 1", "exit action\n", line_of_any},   {"malloc none 0", "exit action\n", line_at_limit},
        {"new none 1 2>&-", "exit action\n", ""},        {"new returns 1 2>&-", "handler\nexit action\n", ""},
    };
    for (const auto& [way, output, error] : cases) {
        for (const std::string& environment : {std::string(), with_allocator, tracked}) {
            // The C library's malloc gives null and asks nobody; the allocator's runs the new handler.
            const bool gets_null = environment.empty() && std::string(way).starts_with("malloc");
            const ENDING ending = gets_null ? expect({run_out + way, "", "end of main\nexit action\n"})
                                            : expect({run_out + way, environment, output, "exit 1", error});
            EXPECT_EQ(ending.files.empty(), environment != tracked);
        }
    }
}

// A report that was cut off has no end of line, and one that was not begun has no file.
TEST(OutOfMemory, SixteenThreadsAtOnceGiveOneMessageAndCompleteReports) {
    const ENDING model = run(run_out + "new none 1", tracked);
    ASSERT_FALSE(model.files.empty());
    for (int round = 0; round < 100; ++round) {
        const ENDING ending =
            expect({run_out + "new none 16", tracked, "exit action\n", "exit 1", line_of_sixteen});
        for (const auto& [name, text] : model.files) {
            ASSERT_TRUE(ending.files.contains(name)) << round << name;
            ASSERT_TRUE(ending.files.at(name).ends_with('\n')) << round << name;
        }
    }
}

ENDING fail_at(long number, const std::string& how) {
    return run("ending_host fail_at " + std::to_string(number) + how,
               track_all + "LD_PRELOAD=" BUILT "/failing_allocator.so:" TCMALLOC_MINIMAL);
}

// Every allocation of a small tracked run fails once, each in a process of its own.
TEST(OutOfMemory, EndsTheProcessWhicheverAllocationFails) {
    const ENDING whole = fail_at(0, " handled");
    ASSERT_EQ(whole.how, "exit 0") << whole.error;
    const long in_run = std::stol(whole.output);
    ASSERT_GT(in_run, 50);
    // Those of the run and of the exit with its reports, until there is none left to fail.
    ENDING ending{"exit 1", {}, {}, {}};
    for (long number = 1; ending.how == "exit 1"; ++number) {
        ending = fail_at(number, " handled");
        ASSERT_TRUE(ending.how == "exit 1" || (ending.how == "exit 0" && number > in_run))
            << "allocation " << number << ": " << ending.how << ending.error;
        ASSERT_EQ(ending.error.starts_with("\nOut of memory ("), ending.how == "exit 1") << ending.error;
    }
    EXPECT_EQ(ending.files.size(), whole.files.size());
}

// Where the program lives with it, the tracker's own lack of memory is all that ends it.
TEST(OutOfMemory, EndsAProgramThatGoesOnOnlyInsideTheTracker) {
    const long in_run = std::stol(fail_at(0, " caught").output);
    int ended = 0;
    for (long number = 1; number <= in_run; ++number) {
        const ENDING ending = fail_at(number, " caught");
        if (ending.how == "exit 0") continue;
        ++ended;
        EXPECT_EQ(ending.how, "exit 1") << "allocation " << number << ending.error;
        EXPECT_THAT(ending.error, testing::EndsWith("inside the tracker, no reports are written\n"));
    }
    EXPECT_GT(ended, 10);
}
