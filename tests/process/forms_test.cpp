// Every form of allocation is charged to its own line, in every build of the host.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "tests/process/child_process.h"

namespace {

// Sizes are asked, and then what the allocator's size classes make of them:
//   8 16 29+1 32 40 48 64 80 100 101 200 320 400 500 512 600 700 1000 1020 1024 3000 8000
//   8 16   32 32 48 48 64 80 112 112 208 320 416 512 512 640 704 1024 1024 1024 3072 8192
// A vector of longs grows to 1, 2, 4 and 8 elements: 8 + 16 + 32 + 64 = 120 bytes in four blocks, and while
// it grows last two of them live. A node of the map has four links, a key and a value: 48 bytes; a shared
// record has 16 bytes of counts in front; a closure is the record alone.
constexpr const char* expected =
    R"(malloc: forms_host forms_host.cpp+0 forms::by_malloc(int) made 3/3072 asked 3000 live 2/2048 most 3/3072
calloc: forms_host forms_host.cpp+0 forms::by_calloc(int) made 3/3072 asked 3000 live 2/2048 most 3/3072
realloc in place: forms_host forms_host.cpp+0 forms::realloc_in_place(int) made 3/3072 asked 3060 live 2/2048 most 3/3072
realloc moving: forms_host forms_host.cpp+0 forms::realloc_moving(int) made 3/24576 asked 24000 live 2/16384 most 3/24576
realloc shrinking: forms_host forms_host.cpp+0 forms::realloc_shrinking(int) made 3/336 asked 300 live 2/224 most 3/336
new: forms_host forms_host.cpp+0 forms::by_new(int) made 3/24 asked 24 live 2/16 most 3/24
new[]: forms_host forms_host.cpp+0 forms::by_new_array(int) made 3/1536 asked 1500 live 2/1024 most 3/1536
aligned new: forms_host forms_host.cpp+0 forms::by_aligned_new(int) made 3/1536 asked 1536 live 2/1024 most 3/1536
nothrow new: forms_host forms_host.cpp+0 forms::by_nothrow_new(int) made 3/1536 asked 1500 live 2/1024 most 3/1536
posix_memalign: forms_host forms_host.cpp+0 forms::by_posix_memalign(int) made 3/3072 asked 3072 live 2/2048 most 3/3072
strdup: forms_host forms_host.cpp+0 forms::by_strdup(int) made 3/96 asked 90 live 2/64 most 3/96
string: forms_host forms_host.cpp+0 forms::by_string(int) made 3/336 asked 303 live 2/224 most 3/336
vector: forms_host forms_host.cpp+0 forms::append(std::vector<long, std::allocator<long> >&) made 12/360 asked 360 live 2/128 most 4/224
map: forms_host forms_host.cpp+0 forms::by_map(int) made 3/144 asked 144 live 2/96 most 3/144
make_shared: forms_host forms_host.cpp+0 forms::by_make_shared(int) made 3/240 asked 240 live 2/160 most 3/240
function: forms_host forms_host.cpp+0 forms::by_function(int) made 3/192 asked 192 live 2/128 most 3/192
template: forms_host forms_host.cpp+0 forms::by_template<int>(int) made 3/144 asked 120 live 2/96 most 3/144
lambda: forms_host forms_host.cpp+0 forms::by_lambda(int)::LAMBDA made 3/960 asked 960 live 2/640 most 3/960
inlined: forms_host forms_host.cpp+0 forms::level_three() made 3/1248 asked 1200 live 2/832 most 3/1248
thread: forms_host forms_host.cpp+0 forms::in_thread() made 3/1920 asked 1800 live 2/1280 most 3/1920
catch: forms_host forms_host.cpp+0 forms::by_catch(int) made 3/2112 asked 2100 live 2/1408 most 3/2112
library: forms_library forms_module.cpp+0 library_block made 3/9216 asked 9000 live 2/6144 most 3/9216
plugin: forms_plugin forms_module.cpp+0 plugin_block made 3/9216 asked 9000 live 2/6144 most 3/9216
static: forms_host forms_host.cpp+0 INITIALISER made 1/208 asked 200 live 1/208 most 1/208
)";

class Forms : public testing::TestWithParam<std::string> {};

TEST_P(Forms, AreChargedToTheirLines) {
    const std::string folder = FORMS_FOLDER "/" + GetParam() + "/";
    const ENDING ending = run_program(
        {.command = {folder + "forms_host", folder + "forms_plugin.so"},
         .environment = {"VELDRIN_MEM_PROFILE_PER_FILELINE=1", "VELDRIN_MEM_PROFILE_PER_LIBRARY=1"}});
    ASSERT_EQ(ending.how(), "exit 0") << ending.error;
    // What each compiler calls things that have no name.
    const std::regex lambda(R"((\{lambda.*\}|\$_[0-9]+)::operator\(\)(\(unsigned long\) const)?)");
    const std::regex initialiser(
        R"(__static_initialization_and_destruction_0(\(int, int\))?|__cxx_global_var_init[.0-9]*(\(\))?)");
    const std::string named = std::regex_replace(ending.output, lambda, "LAMBDA");
    EXPECT_EQ(std::regex_replace(named, initialiser, "INITIALISER"), expected);
}

std::vector<std::string> builds() {
    std::vector<std::string> names;
    std::istringstream list(FORMS_BUILDS);
    for (std::string name; list >> name;) names.push_back(name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Builds, Forms, testing::ValuesIn(builds()),
                         [](const auto& build) { return build.param; });

}  // namespace
