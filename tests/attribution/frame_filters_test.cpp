#include "mem/attribution/frame_filters.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>

#include "ktl_mem/services.h"
#include "tests/attribution/told_messages.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string filters_path;

void answer_key(const char* name, std::string* out) {
    *out = std::string(name) == "mem_user_defined_filters_file" ? filters_path : "";
}

class FRAME_FILTERS : public testing::Test {
  protected:
    FRAME_FILTERS() {
        mem_set_msg_local_vdebug_callback(keep_message);
        mem_set_cfg_get_value_callback(answer_key);
        clear();
    }
    static void clear() {
        messages.clear();
        mem_filter_modules.clear();
        mem_filter_functions.clear();
        mem_filter_file_basenames.clear();
    }

    // The messages for a file of that text, without the first, which names the file.
    static std::vector<std::string> read(const std::string& text) {
        clear();
        filters_path = testing::TempDir() + "frame_filters_test.txt";
        std::ofstream(filters_path) << text;
        mem_read_user_defined_filters();
        std::remove(filters_path.c_str());
        EXPECT_EQ(messages.at(0), "reading user defined filters from \"" + filters_path + "\"");
        return {messages.begin() + 1, messages.end()};
    }
};

using WORDS = std::vector<const char*>;

TEST_F(FRAME_FILTERS, modules) {
    mem_filter_modules = {"plug", "TBBQ"};
    const WORDS filtered = {"",      "ktl_mem",         "ktl_mem_agent", "tbb",      "tbbmalloc", "db_xdb",
                            "LZMA",  "Iomp5",           "plugin",        "TBBQ1",    "c",         "stdc++",
                            "gcc_s", "ld-linux-x86-64", "linux-vdso",    "tcmalloc", "tcmalloc_x"};
    const WORDS kept = {"KTL_MEM", "TBBX",   "lzma2",     "xlzma",   "my_plugin",
                        "Plugin",  "crypto", "c_helpers", "C",       "mytcmalloc",
                        "python3", "main",   "stdc++fs",  "db_xdb2", "ktl_cfg_ini"};
    for (const char* module : filtered) EXPECT_TRUE(mem_module_is_filtered(module)) << module;
    for (const char* module : kept) EXPECT_FALSE(mem_module_is_filtered(module)) << module;
}

TEST_F(FRAME_FILTERS, functions) {
    mem_filter_functions = {"foo"};
    const WORDS filtered = {"",
                            "std::vector<int>::push_back(int&&)",
                            "mem_run()",
                            "MEM_MANAGER::msize",
                            "foobar",
                            "operator new[](unsigned long)",
                            "VTLvector::grow()",
                            "boost::any::any()",
                            "tbb::run()",
                            "mtl::run()",
                            "__gnu_cxx::run()"};
    for (const char* function : filtered)
        EXPECT_TRUE(mem_frame_is_filtered("/a/foo.cpp", function)) << function;
    for (const char* function : {"run()", "stdx::run()", "operator==(A, A)", "my::std::run()", "bar"})
        EXPECT_FALSE(mem_frame_is_filtered("/a/foo.cpp", function)) << function;
}

TEST_F(FRAME_FILTERS, files) {
    mem_filter_functions = {"Unknown"};
    mem_filter_file_basenames = {"gen_"};
    const WORDS filtered = {"",
                            "/a/mem_pool.cpp",
                            "c:\\a\\xdb_pool.cpp",
                            "/a\\b/mem_pool.cpp",
                            "/a/my_utils.cpp",
                            "/a/plr_mem_interface.cpp",
                            "/a/tbb_concurrent_hash_map_sys.h",
                            "/usr/include/x86_64-linux-gnu/bits/stdio.h",
                            "/a/gen_code.cpp"};
    // No base name without a separator.
    const WORDS kept = {"mem_pool.cpp",     "/mem_a/run.cpp",  "/a/my_utils.h", "/a/my_utils.cppm",
                        "/a/code_gen_.cpp", "/a/bits/stdio.h", "Unknown"};
    for (const char* file : filtered) EXPECT_TRUE(mem_frame_is_filtered(file, "run()")) << file;
    for (const char* file : kept) EXPECT_FALSE(mem_frame_is_filtered(file, "run()")) << file;
    EXPECT_TRUE(mem_frame_is_filtered("Unknown", "std::run()"));
    // Bare names, which line tables alone give.
    const WORDS folders = {"/usr/include/c++/12/bits/", "/usr/lib/llvm-14/include/c++/v1/",
                           "/x/include/boost/any/", "/usr/include/x86_64-linux-gnu/c++/12/",
                           "/opt/include/oneapi/tbb/"};
    for (const std::string folder : folders) {
        for (const char* bare : {"allocate", "construct<a::b, int &>", "operator()", "operator<<"})
            EXPECT_TRUE(mem_frame_is_filtered((folder + "x.h").c_str(), bare)) << folder << bare;
        for (const char* whole : {"my::allocate", "allocate(int)"})
            EXPECT_FALSE(mem_frame_is_filtered((folder + "x.h").c_str(), whole)) << folder << whole;
    }
    for (const char* file : {"/me/c++/x.h", "/c++/include/x.h", "/include/c++.h"})
        EXPECT_FALSE(mem_frame_is_filtered(file, "allocate")) << file;
}

TEST_F(FRAME_FILTERS, each_line_of_the_file_is_answered) {
    const std::string bad = "accepted 0 user defined filters (1 error)";
    const std::string good = "accepted 1 user defined filter (0 errors)";
    const std::string long_line = "filter_module " + std::string(100'000, 'a');
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"", {"accepted 0 user defined filters (0 errors)"}},
        {"\n \t\r\n# a comment\n", {"accepted 0 user defined filters (0 errors)"}},
        {"filter_module foo # note", {"accepting module filter: \"foo\"", good}},
        {"  filter_module\tfoo\r\n", {"accepting module filter: \"foo\"", good}},
        {"filter_file_basename foo", {"accepting file basename filter: \"foo\"", good}},
        {"filter_function #foo", {"accepting function filter: \"#foo\"", good}},
        {"filter_module foo bar", {"lineno 1: unexpected text following filter argument", bad}},
        {"filter_module # foo", {"lineno 1: missing filter argument", bad}},
        {"filter_module", {"lineno 1: missing filter argument", bad}},
        {"#comment", {"line 1: unexpected filter command: \"#comment\"", bad}},
        {"FILTER_MODULE foo", {"line 1: unexpected filter command: \"FILTER_MODULE\"", bad}},
        {"\n\n# x\nfilter foo", {"line 4: unexpected filter command: \"filter\"", bad}},
        {long_line + "\nfilter_module a",
         {"line 1: longer than 4095 characters", "accepting module filter: \"a\"",
          "accepted 1 user defined filter (1 error)"}},
        {long_line, {"line 1: longer than 4095 characters", bad}},
        {"filter_module a\nx\nfilter_module b\ny",
         {"accepting module filter: \"a\"", "line 2: unexpected filter command: \"x\"",
          "accepting module filter: \"b\"", "line 4: unexpected filter command: \"y\"",
          "accepted 2 user defined filters (2 errors)"}},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(read(text), expected) << text;
}

TEST_F(FRAME_FILTERS, a_file_that_cannot_be_read_is_told_and_none_is_silent) {
    filters_path = "";
    mem_read_user_defined_filters();
    EXPECT_THAT(messages, IsEmpty());
    for (const char* path : {"/no/such/file", "/", "/dev/zero"}) {
        filters_path = path;
        messages.clear();
        mem_read_user_defined_filters();
        EXPECT_THAT(messages, ElementsAre("error opending memory tracker user defined filters file \"" +
                                          filters_path + "\""));
    }
}

}  // namespace
