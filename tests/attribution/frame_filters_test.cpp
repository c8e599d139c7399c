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
    ~FRAME_FILTERS() override { clear(); }
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

TEST_F(FRAME_FILTERS, modules) {
    mem_filter_modules = {"plug", "TBBQ"};
    const std::pair<const char*, bool> cases[] = {
        {"", true},           {"ktl_mem", true},    {"ktl_mem_agent", true}, {"KTL_MEM", false},
        {"tbb", true},        {"tbbmalloc", true},  {"TBBX", false},         {"db_xdb", true},
        {"LZMA", true},       {"lzma2", false},     {"xlzma", false},        {"Iomp5", true},
        {"plugin", true},     {"my_plugin", false}, {"Plugin", false},       {"TBBQ1", true},
        {"c", true},          {"stdc++", true},     {"gcc_s", true},         {"ld-linux-x86-64", true},
        {"linux-vdso", true}, {"crypto", false},    {"c_helpers", false},    {"C", false},
        {"tcmalloc", true},   {"tcmalloc_x", true}, {"mytcmalloc", false},   {"python3", false},
        {"main", false},      {"stdc++fs", false},  {"db_xdb2", false},      {"ktl_cfg_ini", false},
    };
    for (const auto& [module, filtered] : cases)
        EXPECT_EQ(mem_module_is_filtered(module), filtered) << module;
}

TEST_F(FRAME_FILTERS, functions_and_files) {
    mem_filter_functions = {"foo", "Unknown"};
    mem_filter_file_basenames = {"gen_"};
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"", "run()", true},
        {"/a/run.cpp", "", true},
        {"/a/run.cpp", "run()", false},
        {"/a/run.cpp", "std::vector<int>::push_back(int&&)", true},
        {"/a/run.cpp", "stdx::run()", false},
        {"/a/run.cpp", "mem_run()", true},
        {"/a/run.cpp", "MEM_MANAGER::msize", true},
        {"/a/run.cpp", "operator new[](unsigned long)", true},
        {"/a/run.cpp", "operator==(A, A)", false},
        {"/a/run.cpp", "VTLvector::grow()", true},
        {"/a/run.cpp", "boost::any::any()", true},
        {"/a/run.cpp", "tbb::run()", true},
        {"/a/run.cpp", "mtl::run()", true},
        {"/a/run.cpp", "__gnu_cxx::run()", true},
        {"/a/run.cpp", "my::std::run()", false},
        {"/a/run.cpp", "foobar", true},
        {"/a/foo.cpp", "bar", false},
        {"/a/mem_pool.cpp", "run()", true},
        {"c:\\a\\xdb_pool.cpp", "run()", true},
        {"/a\\b/mem_pool.cpp", "run()", true},
        {"/mem_a/run.cpp", "run()", false},
        {"mem_pool.cpp", "run()", false},  // no base name without a separator
        {"/a/my_utils.cpp", "run()", true},
        {"/a/my_utils.h", "run()", false},
        {"/a/my_utils2.cpp", "run()", false},
        {"/a/plr_mem_interface.cpp", "run()", true},
        {"/a/tbb_concurrent_hash_map_sys.h", "run()", true},
        {"/a/gen_code.cpp", "run()", true},
        {"/a/code_gen_.cpp", "run()", false},
        {"Unknown", "run()", false},
        {"Unknown", "std::run()", true},
    };
    for (const auto& [file, function, filtered] : cases)
        EXPECT_EQ(mem_frame_is_filtered(file, function), filtered) << file << function;
}

TEST_F(FRAME_FILTERS, each_line_of_the_file_is_answered) {
    const std::string bad = "accepted 0 user defined filters (1 error)";
    const std::string good = "accepted 1 user defined filter (0 errors)";
    const std::pair<const char*, std::vector<std::string>> cases[] = {
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
    for (const char* path : {"/no/such/file", "/"}) {
        filters_path = path;
        messages.clear();
        mem_read_user_defined_filters();
        EXPECT_THAT(messages, ElementsAre("error opending memory tracker user defined filters file \"" +
                                          filters_path + "\""));
    }
}

}  // namespace
