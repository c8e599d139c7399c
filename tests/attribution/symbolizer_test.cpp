#include "mem/attribution/symbolizer.h"

#include <gmock/gmock.h>

#include "ktl_mem/services.h"
#include "tests/attribution/told_messages.h"

// Of linkage, so that both compilers note its parameters.
struct INLINED_HERE {
    static void call();
};

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

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

// The addresses of a call that is inlined into this function, and of no code at all.
std::uint64_t own_address;
__attribute__((noinline)) void note_own_address() {
    own_address = reinterpret_cast<std::uint64_t>(__builtin_return_address(0));
}
}  // namespace

static constexpr std::uint32_t inner_line = __LINE__ + 2;
inline __attribute__((always_inline)) void INLINED_HERE::call() {
    note_own_address();
}

namespace {

constexpr std::uint32_t outer_line = __LINE__ + 2;
__attribute__((noinline)) void call_through_inlined() {
    INLINED_HERE::call();
    asm volatile("");
}

// What a symbolizer says of an address.
struct ANSWER {
    ANSWER(MEM_SYMBOLIZER* symbolizer, std::uint64_t pc) {
        EXPECT_TRUE(symbolizer->get_module_name(pc, frame));
        EXPECT_TRUE(symbolizer->get_stack_frames(pc, frame, further));
        EXPECT_EQ(frame.pc, pc);
    }
    MEM_STACK_FRAME frame;
    std::vector<MEM_STACK_FRAME> further = std::vector<MEM_STACK_FRAME>(3);
};

TEST(symbolizers, the_callers_of_inlined_calls_are_further_frames) {
    call_through_inlined();
    const ANSWER dwarf(MEM_SYMBOLIZER_DWARF::get_instance(), own_address);
    EXPECT_STREQ(dwarf.frame.function, "INLINED_HERE::call()");
    EXPECT_EQ(dwarf.frame.line, inner_line);
    ASSERT_EQ(dwarf.further.size(), 1u);
    EXPECT_STREQ(dwarf.further[0].function, "(anonymous namespace)::call_through_inlined()");
    EXPECT_THAT(dwarf.further[0].file,
                AllOf(StartsWith("/"), EndsWith("/tests/attribution/symbolizer_test.cpp")));
    EXPECT_STREQ(dwarf.further[0].module, "test_attribution_text");
    EXPECT_EQ(dwarf.further[0].line, outer_line);
    EXPECT_EQ(dwarf.further[0].pc, own_address);

    const ANSWER windows(MEM_SYMBOLIZER_WINDOWS::get_instance(), own_address);
    EXPECT_STREQ(windows.frame.module, "test_attribution_text");
    EXPECT_STREQ(windows.frame.function, "(anonymous namespace)::call_through_inlined()");
    EXPECT_STREQ(windows.frame.file, dwarf.further[0].file);
    EXPECT_THAT(windows.further, IsEmpty());
}

TEST(symbolizers, leave_a_frame_empty_that_they_know_nothing_of) {
    int on_the_stack = 0;
    MEM_SYMBOLIZER* const symbolizers[] = {MEM_SYMBOLIZER_DWARF::get_instance(),
                                           MEM_SYMBOLIZER_WINDOWS::get_instance()};
    for (MEM_SYMBOLIZER* const symbolizer : symbolizers) {
        const ANSWER answer(symbolizer, reinterpret_cast<std::uint64_t>(&on_the_stack));
        EXPECT_STREQ(answer.frame.module, "");
        EXPECT_STREQ(answer.frame.file, "");
        EXPECT_STREQ(answer.frame.function, "");
        EXPECT_THAT(answer.further, IsEmpty());
    }
}

}  // namespace
