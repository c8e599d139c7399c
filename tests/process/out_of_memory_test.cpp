#include "tests/process/child_process.h"

const std::string run_out = "prlimit --as=1073741824 ending_host run_out ";
const std::string tracked_without_paths = with_allocator + track_all;
const std::string tracked = tracked_without_paths + "VELDRIN_MEM_PROFILE_CALL_PATHS=1 ";

// The one line. A process whose address space ends at one gibibyte has used 1073 million bytes.
const std::string line_of_any = "\nOut of memory \\([1-9][0-9]* megabytes used\\)\n";
const std::string line_at_limit = "\nOut of memory \\(10[0-7][0-9] megabytes used\\)\n";
const std::string line_of_sixteen = "\nOut of memory \\((9[0-9]|10[0-7])[0-9] megabytes used\\)\n";
// The allocator has lines of its own to say.
const std::string allocators = "(src/[^\n]*\n)*";

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
    const ENDING model = run(run_out + "new none 1", tracked_without_paths);
    ASSERT_FALSE(model.files.empty());
    for (int round = 0; round < 100; ++round) {
        const ENDING ending = expect(
            {run_out + "new none 16", tracked_without_paths, "exit action\n", "exit 1", line_of_sixteen});
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

// With null, and without it.
TEST(OutOfMemory, LeavesAllReportsWhateverTheSizeOfTheBlocks) {
    const ENDING model = run("ending_host run_out call none 0", tracked);
    ASSERT_GT(model.files.size(), 10U);
    for (const std::string bytes : {"16", "100", "1000", "30000", "1048576", "1073741824"}) {
        for (const std::string threads : {"0", "8"}) {
            const std::string limit = threads == "0" ? "160000000" : "320000000";
            const CASE cases[] = {
                {"cope " + threads, "", "no more\n", "exit 7", allocators},
                {"run_out new none " + threads, "", "exit action\n", "exit 1",
                 allocators + line_of_any + allocators},
                {"run_out malloc returns " + threads, "", "handler\nexit action\n", "exit 1", allocators}};
            for (const CASE& way : cases)
                expect({"prlimit --as=" + limit + " ending_host " + way.command + " " + bytes, tracked,
                        way.output, way.how, way.error})
                    .expect_reports_of(model);
        }
    }
}

// Every allocation of a small tracked run fails once, each in a process of its own: the program's ends it,
// and the tracker goes on without its own.
TEST(OutOfMemory, EndsTheProcessWhicheverOfItsAllocationsFails) {
    const ENDING whole = fail_at(0, " handled");
    ASSERT_EQ(whole.how, "exit 0") << whole.error;
    const long in_run = std::stol(whole.output);
    ASSERT_GT(in_run, 50);
    int ended = 0;
    for (long number = 1; number <= in_run; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        const ENDING ending = fail_at(number, " handled");
        if (ending.how == "exit 1") {
            ++ended;
            EXPECT_THAT(ending.error, testing::StartsWith("\nOut of memory ("));
        } else {
            EXPECT_EQ(ending.how + ending.error, "exit 0");
        }
        ending.expect_reports_of(whole);
    }
    EXPECT_GT(ended, 10);
}

// Only calls of the host that must not stop half way end the process, and then with its reports.
TEST(OutOfMemory, InsideAnEventIsNoneOfTheProgramsBusiness) {
    const ENDING whole = fail_at(0, " caught");
    int ended = 0, gone_on = 0;
    for (long number = 1; number <= std::stol(whole.output); ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        const ENDING ending = fail_at(number, " caught");
        ++(ending.how == "exit 0" ? gone_on : ended);
        EXPECT_TRUE(ending.how == "exit 0" || ending.error.starts_with("\nOut of memory (")) << ending.error;
        ending.expect_reports_of(whole);
    }
    EXPECT_GT(gone_on, 4 * ended);
}
