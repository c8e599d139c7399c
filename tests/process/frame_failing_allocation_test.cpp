// Every allocation of a small tracked run fails once, each in a process of its own.
#include <gtest/gtest.h>

#include "tests/process/child_process.h"

namespace {

ENDING fail_at(long number) {
    return run_program(
        {.command = {MEMORY_HOST, "fail=" + std::to_string(number), "none", "main"},
         .environment = {"LD_PRELOAD=" FAILING_ALLOCATOR " " TCMALLOC_MINIMAL, "VELDRIN_MEM_PROFILE_ALL=1"}});
}

TEST(FailingAllocation, EndsTheProcessWithExitCodeOneAndNeverHangs) {
    const ENDING whole = fail_at(0);
    ASSERT_EQ(whole.how(), "exit 0") << whole.error;
    const long in_run = std::stol(whole.output);
    ASSERT_GT(in_run, 50);
    // Those of the run and of the exit with its reports, until there is none left to fail.
    long number = 0;
    ENDING ending;
    do {
        ending = fail_at(++number);
        ASSERT_TRUE(ending.how() == "exit 1" || (ending.how() == "exit 0" && number > in_run))
            << "allocation " << number << ": " << ending.how() << "\n"
            << ending.error;
        ASSERT_EQ(ending.error.starts_with("\nOut of memory ("), ending.exit_code == 1) << ending.error;
    } while (ending.exit_code == 1);
    EXPECT_EQ(ending.files.size(), whole.files.size());
}

}  // namespace
