#include <gtest/gtest.h>

#include "tests/process/child_process.h"

namespace {

const std::string terminated =
    "Fatal error: Program termination requested. The Veldrin software will now exit.\n";
const std::string incomplete = "\n*** Fatal Error: Failed to complete termination procedures\n";

std::string fault(int code) {
    return "Fatal error: SE " + std::to_string(code) + " thrown. The Veldrin software will now exit.\n";
}

ENDING die(const std::string& event, const std::string& callback, const std::string& place,
           std::vector<std::string> environment) {
    return run_program(
        {.command = {FAULT_HOST, event, callback, place}, .environment = std::move(environment)});
}

struct CASE {
    const char* event;
    const char* callback;
    std::string how;
    std::string error;
    const char* output = "kept in the buffer\n";
};

void expect_everywhere(const std::vector<CASE>& cases) {
    for (const auto& [event, callback, how, error, output] : cases) {
        for (const char* const place : {"main", "std::thread", "pthread"}) {
            for (const std::vector<std::string>& environment :
                 {std::vector<std::string>{}, {with_allocator()}}) {
                const ENDING ending = die(event, callback, place, environment);
                SCOPED_TRACE(std::string(event) + " " + callback + " " + place);
                EXPECT_EQ(ending.how(), how);
                EXPECT_EQ(ending.error, error);
                EXPECT_EQ(ending.output, output);
            }
        }
    }
}

TEST(FatalExit, TellsEveryEventOnEveryThread) {
    expect_everywhere({
        {"read", "none", "exit 2", fault(11)},
        {"overflow", "none", "exit 2", fault(11)},
        {"bus", "none", "exit 2", fault(7)},
        {"divide", "none", "exit 2", fault(8)},
        {"illegal", "none", "exit 2", fault(4)},
        {"sent", "none", "exit 2", fault(11)},
        {"throw", "none", "exit 2", terminated},
        {"noexcept", "none", "exit 2", terminated},
        {"terminate", "none", "exit 2", terminated},
    });
}

// The first one tells the event; one that comes in before that is seen says that it is the second.
TEST(FatalExit, EndsInTheKnownFormWhenSixteenThreadsFailAtOnce) {
    const std::string recursive = "\n*** Internal Error: Recursive termination requested.\n";
    for (int round = 0; round < 20; ++round) {
        for (const std::string event : {"read", "terminate"}) {
            const ENDING ending = die(event, "none", "sixteen", {with_allocator()});
            EXPECT_EQ(ending.how(), "exit 2") << ending.error;
            const bool told =
                ending.error.find(event == "read" ? fault(11) : terminated) != std::string::npos;
            EXPECT_TRUE(told || ending.error.find(recursive) != std::string::npos) << ending.error;
        }
    }
}

// A callback that returns leaves the process to what would have happened without the library.
TEST(FatalExit, LeavesItToTheCallbacks) {
    expect_everywhere({
        {"read", "return", "signal 11", "callback\n", ""},
        {"overflow", "return", "signal 11", "callback\n", ""},
        {"sent", "return", "signal 11", "callback\n", ""},
        {"divide", "return", "signal 8", "callback\n", ""},
        {"throw", "return", "signal 6", "callback\n", ""},
        {"read", "throw", "exit 2", incomplete},
        {"throw", "throw", "exit 2", incomplete},
        {"read", "fault", "exit 2", incomplete},
        {"overflow", "fault", "exit 2", incomplete},
        {"terminate", "fault", "exit 2", incomplete},
        {"page", "repair", "exit 0", "exit action\n", "kept in the buffer\nwent on\n"},
    });
}

TEST(FatalExit, InstallsNothingWhileDisabled) {
    struct {
        const char* event;
        const char* how;
    } const cases[] = {{"read", "signal 11"}, {"overflow", "signal 11"}, {"divide", "signal 8"},
                       {"bus", "signal 7"},   {"throw", "signal 6"},     {"page", "signal 11"}};
    for (const auto& [event, how] : cases) {
        const ENDING ending = die(event, "return", "std::thread", {"FAULT_HOST_DISABLED=1"});
        EXPECT_EQ(ending.how(), how);
        EXPECT_EQ(ending.error.find("Fatal"), std::string::npos);
        EXPECT_EQ(ending.error.find("callback"), std::string::npos);
    }
}

TEST(FatalExit, LeavesTheHostsOwnHandlersAndOtherSignalsAlone) {
    EXPECT_EQ(die("read", "own", "std::thread", {}).how(), "exit 9");
    EXPECT_EQ(die("abort", "none", "main", {}).how(), "signal 6");
    EXPECT_EQ(die("none", "none", "std::thread", {}).how(), "exit 0");
}

}  // namespace
