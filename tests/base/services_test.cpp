#include "ktl_mem/services.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "mem/base/messages.h"

namespace {

std::string printed(auto action) {
    testing::internal::CaptureStdout();
    action();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

class Services : public testing::Test {
  protected:
    void TearDown() override {
        unsetenv("debug_msg");
        mem_set_cfg_is_on_callback(nullptr);
        mem_set_cfg_get_value_callback(nullptr);
        mem_set_cfg_get_int_value_callback(nullptr);
        mem_set_msg_local_vdebug_callback(nullptr);
        mem_set_msg_local_vinfo_callback(nullptr);
        mem_set_ipc_mode(MEM_IPC_MODE_NONE);
    }
};

TEST_F(Services, SwitchesComeFromTheEnvironment) {
    const std::tuple<const char*, bool, bool> cases[] = {
        {"ON", false, true},   {"On", false, true},    {"1", false, true},    {"off", true, false},
        {"OFF", true, false},  {"0", true, false},     {"yes", false, false}, {"yes", true, true},
        {"", true, true},      {"", false, false},     {"2", false, false},   {" on", false, false},
        {nullptr, true, true}, {nullptr, false, false}};
    for (const auto& [value, default_value, expected] : cases) {
        value != nullptr ? setenv("a_switch", value, 1) : unsetenv("a_switch");
        EXPECT_EQ(mem_cfg_is_on("a_switch", default_value), expected) << (value ? value : "unset");
    }
    EXPECT_TRUE(mem_cfg_is_on(nullptr, true));
}

TEST_F(Services, ValuesAndNumbers) {
    setenv("a_value", "12 apples", 1);
    setenv("an_empty_value", "", 1);
    // A number's default reaches the callback only.
    const std::tuple<const char*, const char*, int> cases[] = {
        {"a_value", "12 apples", 12}, {"an_empty_value", "", 0}, {"no_value", "", 0}, {nullptr, "", 0}};
    for (const auto& [name, value, number] : cases) {
        EXPECT_EQ(mem_cfg_get_value(name), value);
        EXPECT_EQ(mem_cfg_get_int_value(name, 7), number) << value;
    }
}

TEST_F(Services, CallbacksOutrankTheEnvironment) {
    setenv("a_switch", "off", 1);
    mem_set_cfg_is_on_callback(
        [](const char* name, bool default_value) { return name != nullptr || default_value; });
    EXPECT_TRUE(mem_cfg_is_on("a_switch", false));
    EXPECT_FALSE(mem_cfg_is_on(nullptr, false));
    mem_set_cfg_get_value_callback([](const char*, std::string* out) { *out = "called"; });
    EXPECT_EQ(mem_cfg_get_value(nullptr), "called");
    mem_set_cfg_get_int_value_callback([](const char*, int*, int) {});
    EXPECT_EQ(mem_cfg_get_int_value("a_value", 7), 0) << "a callback that leaves the number alone";
    mem_set_cfg_get_int_value_callback(
        [](const char*, int* out, int default_value) { *out = default_value + 1; });
    EXPECT_EQ(mem_cfg_get_int_value(nullptr, 7), 8);
    mem_set_cfg_is_on_callback(nullptr);
    EXPECT_FALSE(mem_cfg_is_on("a_switch", true)) << "an emptied slot is served by the environment again";
}

TEST_F(Services, EmptySlotsHaveAnswers) {
    EXPECT_EQ(mem_gen_get_veldrin_path() + mem_gen_get_db_dir_path_string() + mem_gen_get_module_filename(),
              "");
    EXPECT_STREQ(mem_gen_get_project_output_directory(), "");
    EXPECT_FALSE(mem_gen_get_is_ui_process() || mem_vtcl_run_internal_tcl_cmd("exit"));
}

TEST_F(Services, DebugLinesHaveThreeForms) {
    EXPECT_EQ(printed([] { mem_msg_debug("unheard %d", 1); }), "") << "debug_msg is off";
    setenv("debug_msg", "on", 1);
    const std::pair<int, const char*> cases[] = {
        {0, "Debug: MEM: 5 \"blocks\"\n"},
        {3, "Debug: MEM: 5 \"blocks\"\n"},
        {1,
         R"(msg_tcl_post_message 0 { "Debug" "" "" "MEM: 5 "blocks"" {  } {  } 0 0 "" 0 0 "app" 0 -1 0 ""})"
         "\n"},
        {2,
         R"({"args":"","flag":0,"help_id":"","hierarchy_path":"","id":0,"object_type":"MSG_POST","raw":"",)"
         R"("severity":0,"source":"app","source_id":-1,"sub_messages":[],"suppress":false,"suppress_type":0,)"
         R"("text":"MEM: 5 "blocks"","timestamp":0,"type":"Debug"})"
         "\n"}};
    for (const auto& [mode, line] : cases) {
        mem_set_ipc_mode(static_cast<MEM_IPC_MODE>(mode));
        EXPECT_EQ(printed([] { mem_msg_debug("%d \"%s\"", 5, "blocks"); }), line);
    }
    mem_set_ipc_mode(MEM_IPC_MODE_NONE);
    unsetenv("debug_msg");
    EXPECT_EQ(printed([] { mem_debug_print_formatted("MEM: by '%s'", "X"); }), "Debug: MEM: by 'X'\n")
        << "without the module's name, whatever debug_msg is";
}

TEST_F(Services, InformationIsAlwaysPrinted) {
    va_list unread{};
    mem_set_ipc_mode(MEM_IPC_MODE_JSON);
    EXPECT_EQ(printed([&] { EXPECT_TRUE(mem_msg_local_vinfo("APP", "50%%", unread)); }), "APP: 50%\n");
    mem_set_msg_local_vinfo_callback([](const char*, const char*, va_list) { return false; });
    EXPECT_EQ(printed([&] { EXPECT_FALSE(mem_msg_local_vinfo("APP", "x", unread)); }), "");
}

}  // namespace
