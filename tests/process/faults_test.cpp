#include <sstream>

#include "tests/process/child_process.h"

namespace {

const std::string terminated =
    "Fatal error: Program termination requested\\. The Veldrin software will now exit\\.\n";
const std::string incomplete = "\n\\*\\*\\* Fatal Error: Failed to complete termination procedures\n";
const std::string recursive = "\n\\*\\*\\* Internal Error: Recursive termination requested\\.\n";
const std::string uncaught =
    "terminate called after throwing an instance of 'std::runtime_error'\n  what\\(\\):  lost\n";

std::string told(int code) {
    return "Fatal error: SE " + std::to_string(code) + " thrown\\. The Veldrin software will now exit\\.\n";
}

const std::string enabled = "HANDLE_EXCEPTIONS=1 ";

TEST(Faults, EndAsTheyShouldOnEveryThread) {
    struct {
        std::string setting;
        const char* events;
        std::string callback, how, error;
        std::string output = "kept in the buffer\n";
    } const cases[] = {
        {enabled, "read overflow sent", "none", "exit 2", told(11)},
        {enabled, "bus", "none", "exit 2", told(7)},
        {enabled, "divide", "none", "exit 2", told(8)},
        {enabled, "illegal", "none", "exit 2", told(4)},
        {enabled, "throw noexcept terminate", "none", "exit 2", terminated},
        // A callback that returns leaves the process to what would have happened without the library.
        {enabled, "read overflow sent", "return", "signal 11", "callback\n", ""},
        {enabled, "divide", "return", "signal 8", "callback\n", ""},
        {enabled, "throw", "return", "signal 6", "callback\n", ""},
        {enabled, "read throw", "throw", "exit 2", incomplete},
        {enabled, "read overflow terminate", "fault", "exit 2", incomplete},
        {enabled, "page", "repair", "exit 0", "exit action\n", "kept in the buffer\nwent on\n"},
        // What is none of the library's business.
        {enabled, "handled", "none", "exit 9", "", ""},
        {enabled, "abort", "none", "signal 6", "", ""},
        {enabled, "none", "none", "exit 0", "exit action\n"},
        {"", "read overflow page", "return", "signal 11", "", ""},
        {"", "bus", "return", "signal 7", "", ""},
        {"", "divide", "return", "signal 8", "", ""},
        {"", "throw", "return", "signal 6", uncaught, ""},
    };
    for (const auto& [setting, events, callback, how, error, output] : cases) {
        std::istringstream all(events);
        for (std::string event; all >> event;)
            for (const std::string thread : {" 0", " 1"})
                for (const std::string& allocator : {std::string(), with_allocator})
                    expect({"ending_host fault " + event + " " + callback + thread, setting + allocator,
                            output, how, error});
    }
}

// The first one tells the event; one that comes in before that is seen says that it is the second.
TEST(Faults, EndInTheKnownFormWhenSixteenThreadsFailAtOnce) {
    const std::string settings = enabled + with_allocator;
    for (int round = 0; round < 20; ++round) {
        expect({"ending_host fault read none 16", settings, ".*", "exit 2",
                ".*(" + told(11) + "|" + recursive + ").*"});
        expect({"ending_host fault terminate none 16", settings, ".*", "exit 2",
                ".*(" + terminated + "|" + recursive + ").*"});
    }
}

}  // namespace
