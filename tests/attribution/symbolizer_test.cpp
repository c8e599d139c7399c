#include "mem/attribution/symbolizer.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include "ktl_mem/services.h"
#include "tests/attribution/told_messages.h"

namespace {

using testing::EndsWith;
using testing::IsEmpty;
using testing::Matcher;
using testing::MatchesRegex;

std::string chosen_word;

void answer_key(const char* name, std::string* out) {
    *out = std::string(name) == "mem_symbolizer" ? chosen_word : "";
}

TEST(mem_choose_symbolizer, takes_known_words_and_tells_of_others) {
    mem_set_msg_local_vdebug_callback(keep_message);
    mem_set_cfg_get_value_callback(answer_key);
    const std::string unknown = "Couldn't find symbolizer \"Windows\".  Using default symbolizer \"dwarf\"\n";
    const std::tuple<const char*, bool, const char*, std::vector<std::string>> cases[] = {
        {"", true, "dwarf", {"Using symbolizer dwarf"}},
        {"default", true, "dwarf", {"Using symbolizer dwarf"}},
        {"windows", true, "windows", {"Using symbolizer windows"}},
        {"dwarf", false, "dwarf", {}},
        {"Windows", false, "dwarf", {unknown}}};
    for (const auto& [word, is_told, name, told] : cases) {
        chosen_word = word;
        messages.clear();
        mem_choose_symbolizer(is_told);
        EXPECT_STREQ(mem_tbb_symbolizer->get_name(), name);
        EXPECT_EQ(messages, told);
    }
}

// The address of a call that is inlined into the function below.
std::uint64_t own_address;
__attribute__((noinline)) void note_own_address() {
    own_address = reinterpret_cast<std::uint64_t>(__builtin_return_address(0));
}
inline __attribute__((always_inline)) void inlined() {
    note_own_address();
}
__attribute__((noinline)) void call_through_inlined() {
    inlined();
    asm volatile("");
}

TEST(symbolizers, fill_in_what_they_know_and_leave_the_rest_empty) {
    call_through_inlined();
    int on_the_stack = 0;
    const auto no_code = reinterpret_cast<std::uint64_t>(&on_the_stack);
    MEM_SYMBOLIZER* const dwarf = MEM_SYMBOLIZER_DWARF::get_instance();
    MEM_SYMBOLIZER* const windows = MEM_SYMBOLIZER_WINDOWS::get_instance();
    const std::tuple<MEM_SYMBOLIZER*, std::uint64_t, const char*, const char*, Matcher<std::string>> cases[] =
        {{dwarf, no_code, "", "", ""},
         {windows, no_code, "", "", ""},
         // The outermost function only.
         {windows, own_address, "test_attribution_text", "(anonymous namespace)::call_through_inlined()",
          MatchesRegex("/.*/tests/attribution/symbolizer_test.cpp")}};
    for (const auto& [symbolizer, pc, module, function, file] : cases) {
        MEM_STACK_FRAME frame;
        std::vector<MEM_STACK_FRAME> further(3);
        EXPECT_TRUE(symbolizer->get_module_name(pc, frame));
        EXPECT_TRUE(symbolizer->get_stack_frames(pc, frame, further));
        EXPECT_EQ(frame.pc, pc);
        EXPECT_STREQ(frame.module, module);
        EXPECT_STREQ(frame.function, function);
        EXPECT_THAT(frame.file, file);
        EXPECT_THAT(further, IsEmpty());
    }
}

std::uint64_t function_of_new_module(const char* path) {
    return reinterpret_cast<std::uint64_t>(dlsym(dlopen(path, RTLD_NOW), "run_probes"));
}

TEST(windows_symbolizer, looks_again_for_modules_that_are_new) {
    MEM_SYMBOLIZER& symbolizer = *MEM_SYMBOLIZER_WINDOWS::get_instance();
    MEM_STACK_FRAME frame;
    symbolizer.get_stack_frame(function_of_new_module(PROBED "/libprobed_gcc_O0.so"), frame);
    EXPECT_STREQ(frame.function, "run_probes");
    EXPECT_THAT(frame.file, EndsWith("/probed.cpp"));
    symbolizer.get_module_name(function_of_new_module(PROBED "/libprobed_clang_O0.so"), frame);
    EXPECT_STREQ(frame.module, "probed_clang_O0");
}

}  // namespace
