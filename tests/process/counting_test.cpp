// The tracker against an independent counter in the same process.
#include <gtest/gtest.h>

#include "tests/process/child_process.h"

namespace {

TEST(Counting, AgreesToTheByteAndBlockWithAnIndependentCounter) {
    const ENDING ending = run_program({.command = {COUNTING_HOST}, .environment = {}});
    ASSERT_EQ(ending.how(), "exit 0") << ending.error;
    EXPECT_EQ(ending.output.find("DIFFERENT"), std::string::npos) << ending.output;
    EXPECT_NE(ending.output.find("statistics: equal"), std::string::npos) << ending.output;
}

}  // namespace
