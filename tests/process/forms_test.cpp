// Every form of allocation is charged to its own line, in every build of the host.
#include <regex>
#include <sstream>

#include "tests/process/child_process.h"

// Sizes are asked, and then what the allocator's size classes make of them:
//   8 16 29+1 32 40 48 64 80 100 101 200 320 400 500 512 600 700 1000 1020 1024 3000 8000
//   8 16   32 32 48 48 64 80 112 112 208 320 416 512 512 640 704 1024 1024 1024 3072 8192
// A vector of longs grows to 1, 2, 4 and 8 elements: 8 + 16 + 32 + 64 = 120 bytes in four blocks, and while
// it grows last two of them live. A node of the map has four links, a key and a value: 48 bytes; a shared
// record has 16 bytes of counts in front; a closure is the record alone.
constexpr const char* expected =
    R"(forms::by_malloc(int) in forms_host forms_host.cpp+0 made 3/3072 asked 3000 live 2/2048 most 3/3072
forms::by_calloc(int) in forms_host forms_host.cpp+0 made 3/3072 asked 3000 live 2/2048 most 3/3072
forms::by_posix_memalign(int) in forms_host forms_host.cpp+0 made 3/3072 asked 3072 live 2/2048 most 3/3072
forms::by_strdup(int) in forms_host forms_host.cpp+0 made 3/96 asked 90 live 2/64 most 3/96
forms::realloc_in_place(int) in forms_host forms_host.cpp+0 made 3/3072 asked 3060 live 2/2048 most 3/3072
forms::realloc_moving(int) in forms_host forms_host.cpp+0 made 3/24576 asked 24000 live 2/16384 most 3/24576
forms::realloc_shrinking(int) in forms_host forms_host.cpp+0 made 3/336 asked 300 live 2/224 most 3/336
forms::by_lambda(int)::LAMBDA in forms_host forms_host.cpp+0 made 3/960 asked 960 live 2/640 most 3/960
forms::level_three() in forms_host forms_host.cpp+0 made 3/1248 asked 1200 live 2/832 most 3/1248
forms::in_thread() in forms_host forms_host.cpp+0 made 3/1920 asked 1800 live 2/1280 most 3/1920
forms::by_catch(int) in forms_host forms_host.cpp+0 made 3/2112 asked 2100 live 2/1408 most 3/2112
module_block in forms_library module.cpp+0 made 3/9216 asked 9000 live 2/6144 most 3/9216
module_block in forms_plugin module.cpp+0 made 3/9216 asked 9000 live 2/6144 most 3/9216
forms::by_new(int) in forms_host forms_host.cpp+0 made 3/24 asked 24 live 2/16 most 3/24
forms::by_new_array(int) in forms_host forms_host.cpp+0 made 3/1536 asked 1500 live 2/1024 most 3/1536
forms::by_nothrow_new(int) in forms_host forms_host.cpp+0 made 3/1536 asked 1500 live 2/1024 most 3/1536
forms::by_template<int>(int) in forms_host forms_host.cpp+0 made 3/144 asked 120 live 2/96 most 3/144
forms::by_mapping(int) in forms_host forms_host.cpp+0 made 3/144 asked 144 live 2/96 most 3/144
forms::by_notifier(int) in forms_host forms_host.cpp+0 made 3/144 asked 144 live 2/96 most 3/144
forms::by_aligned_new(int) in forms_host forms_host.cpp+0 made 3/1536 asked 1536 live 2/1024 most 3/1536
forms::by_string(int) in forms_host forms_host.cpp+0 made 3/336 asked 303 live 2/224 most 3/336
forms::append(std::vector<long, std::allocator<long> >&) in forms_host forms_host.cpp+0 made 12/360 asked 360 live 2/128 most 4/224
forms::by_map(int) in forms_host forms_host.cpp+0 made 3/144 asked 144 live 2/96 most 3/144
forms::by_make_shared(int) in forms_host forms_host.cpp+0 made 3/240 asked 240 live 2/160 most 3/240
forms::by_function(int) in forms_host forms_host.cpp+0 made 3/192 asked 192 live 2/128 most 3/192
INITIALISER in forms_host forms_host.cpp+0 made 1/208 asked 200 live 1/208 most 1/208
)";

TEST(Forms, AreChargedToTheirLinesInEveryBuild) {
    // What each compiler calls things that have no name.
    const std::regex lambda(R"((\{lambda.*\}|\$_[0-9]+)::operator\(\)(\(unsigned long\) const)?)");
    const std::regex initialiser(
        R"(__static_initialization_and_destruction_0(\(int, int\))?|__cxx_global_var_init[.0-9]*(\(\))?)");
    // With line tables alone clang has no more than the own names of inlined functions.
    const std::pair<std::regex, const char*> bare[] = {
        {std::regex(R"(\noperator\(\) in)"), "\nforms::by_lambda(int)::LAMBDA in"},
        {std::regex(R"(\nlevel_three in)"), "\nforms::level_three() in"}};
    std::istringstream builds(FORMS_BUILDS);
    for (std::string build; builds >> build;) {
        const std::string folder = BUILT "/forms_" + build;
        const ENDING ending = run(folder + "/forms_host " + folder + "/forms_plugin.so",
                                  "VELDRIN_MEM_PROFILE_PER_FILELINE=1 VELDRIN_MEM_PROFILE_PER_LIBRARY=1");
        EXPECT_EQ(ending.how, "exit 0") << build << ending.error;
        std::string named = std::regex_replace(ending.output, lambda, "LAMBDA");
        if (build == "clang_lines")
            for (const auto& [name, whole] : bare) named = std::regex_replace(named, name, whole);
        EXPECT_EQ(std::regex_replace(named, initialiser, "INITIALISER"), expected) << build;
    }
}
