#include <gtest/gtest.h>

#include <regex>

#include "tests/process/child_process.h"

namespace {

constexpr std::uint64_t gibibyte = std::uint64_t{1} << 30;
const std::string track_all = "VELDRIN_MEM_PROFILE_ALL=1";

ENDING run_out(const std::string& way, const std::string& handler, const std::string& place,
               std::vector<std::string> environment, bool standard_error_closed = false) {
    return run_program({.command = {MEMORY_HOST, way, handler, place},
                        .environment = std::move(environment),
                        .address_space = gibibyte,
                        .standard_error_closed = standard_error_closed});
}

// The one line, with the number of a process whose address space ends at one gibibyte: 1073 million bytes.
bool is_the_line(const std::string& error, int lowest, int highest) {
    std::smatch number;
    const std::regex line("\nOut of memory \\(([0-9]+) megabytes used\\)\n");
    return std::regex_match(error, number, line) && std::stoi(number[1]) >= lowest &&
           std::stoi(number[1]) <= highest;
}

TEST(OutOfMemory, EndsInOneForm) {
    struct {
        const char* way;
        const char* handler;
        const char* place;
        const char* output;
    } const cases[] = {
        {"new", "none", "main", "exit action\n"},
        {"new", "none", "1", "exit action\n"},
        {"new", "returns", "main", "handler\nexit action\n"},
        {"new", "throws", "1", "handler\nexit action\n"},
        {"new", "again", "main", "handler\nexit action\n"},
        {"new", "allocates", "1", "handler\nexit action\n"},
        {"call", "none", "1", "exit action\n"},
    };
    for (const auto& [way, handler, place, output] : cases) {
        for (const std::vector<std::string>& environment :
             {std::vector<std::string>{}, {with_allocator()}, {with_allocator(), track_all}}) {
            const ENDING ending = run_out(way, handler, place, environment);
            SCOPED_TRACE(std::string(way) + " " + handler + " " + place + " " +
                         std::to_string(environment.size()));
            EXPECT_EQ(ending.how(), "exit 1");
            EXPECT_EQ(ending.output, output);
            const bool has_line = std::string(handler) == "none";
            const int lowest = std::string(way) == "call" ? 1 : 1000;
            EXPECT_TRUE(has_line ? is_the_line(ending.error, lowest, 1073) : ending.error.empty())
                << ending.error;
            EXPECT_EQ(ending.files.empty(), environment.size() < 2);
        }
    }
}

// The C library's malloc gives null and asks nobody; the allocator's runs the new handler.
TEST(OutOfMemory, CatchesMallocWithTheAllocatorOnly) {
    EXPECT_EQ(run_out("malloc", "none", "main", {}).how(), "exit 0");
    const ENDING ending = run_out("malloc", "none", "main", {with_allocator()});
    EXPECT_EQ(ending.how(), "exit 1");
    EXPECT_TRUE(is_the_line(ending.error, 1000, 1073)) << ending.error;
}

TEST(OutOfMemory, EndsWithAClosedStandardError) {
    for (const char* const handler : {"none", "returns"}) {
        const ENDING ending = run_out("new", handler, "1", {with_allocator(), track_all}, true);
        EXPECT_EQ(ending.how(), "exit 1");
        EXPECT_FALSE(ending.files.empty());
    }
}

// A report that was cut off has no end of line, and one that was not begun has no file.
void expect_complete(const std::map<std::string, std::string>& files,
                     const std::map<std::string, std::string>& model) {
    for (const auto& [name, text] : model) {
        const auto found = files.find(name);
        ASSERT_NE(found, files.end()) << name;
        EXPECT_TRUE(found->second.ends_with('\n')) << name;
    }
}

TEST(OutOfMemory, SixteenThreadsAtOnceGiveOneMessageAndCompleteReports) {
    const ENDING model = run_out("new", "none", "1", {with_allocator(), track_all});
    ASSERT_FALSE(model.files.empty());
    for (int round = 0; round < 100; ++round) {
        const ENDING ending = run_out("new", "none", "16", {with_allocator(), track_all});
        ASSERT_EQ(ending.how(), "exit 1") << round << ending.error;
        ASSERT_TRUE(is_the_line(ending.error, 900, 1073)) << ending.error;
        ASSERT_NO_FATAL_FAILURE(expect_complete(ending.files, model.files)) << round;
    }
}

}  // namespace
