// The walker at every single instruction of a function and of all that it calls. The truth is a shadow
// stack, kept by watching calls push and returns pop; it knows nothing of call frame information.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <ucontext.h>
#include <unwind.h>

#include <cstdint>
#include <span>

#include "platform/stack_walk.h"
#include "unwind_shapes.h"

namespace {

constexpr int DEEPEST = 512;
constexpr std::uint64_t TRAP_FLAG = 0x100;

struct {
    std::uint64_t place;
    std::uint64_t address;
} shadow[DEEPEST];
int depth;
std::uint64_t previous_pc;
std::uint64_t previous_sp;

long steps;
long wrong_steps;
std::uint64_t first_wrong_pc;

// The runtime of exceptions overwrites the registers that it has saved, before it jumps to the handler; no
// walker is right there.
bool in_exception_runtime(std::uint64_t pc) {
    static Dl_info runtime;
    static const bool found = dladdr(reinterpret_cast<void*>(&_Unwind_Backtrace), &runtime) != 0;
    constexpr std::uint64_t SIZE = 0x20000;
    return found && pc - reinterpret_cast<std::uint64_t>(runtime.dli_fbase) < SIZE;
}

// A call has pushed the address of the instruction behind it.
bool was_call(std::uint64_t sp) {
    if (sp != previous_sp - 8) return false;
    const std::uint64_t pushed = *reinterpret_cast<const std::uint64_t*>(sp);
    return pushed > previous_pc && pushed - previous_pc <= 8;
}

void follow(std::uint64_t pc, std::uint64_t sp) {
    if (was_call(sp)) shadow[depth++] = {sp, *reinterpret_cast<const std::uint64_t*>(sp)};
    while (depth > 0 && shadow[depth - 1].place < sp) --depth;
    previous_pc = pc;
    previous_sp = sp;
}

bool walk_is_right(STACK_WALK* walk, std::uint64_t pc) {
    std::uint64_t frame = 0;
    if (walk->next(&frame, 1) != 1 || walk->next(&frame, 1) != 1 || frame != pc) return false;
    for (int i = depth - 1; i >= 0; --i)
        if (walk->next(&frame, 1) != 1 || frame != shadow[i].address) return false;
    return true;
}

void after_each_instruction(int, siginfo_t*, void* raw) {
    const STACK_WALK_START start = stack_walk_start(__builtin_frame_address(0));
    const auto& registers = static_cast<const ucontext_t*>(raw)->uc_mcontext.gregs;
    const auto pc = static_cast<std::uint64_t>(registers[REG_RIP]);
    follow(pc, static_cast<std::uint64_t>(registers[REG_RSP]));
    STACK_WALK walk(start, steps % 16 == 0);
    ++steps;
    if (walk_is_right(&walk, pc) || in_exception_runtime(pc)) return;
    if (wrong_steps++ == 0) first_wrong_pc = pc;
}

// Runs function with a trap after each instruction.
__attribute__((noinline)) void step_through(void (*function)()) {
    in_exception_runtime(0);
    depth = 0;
    steps = wrong_steps = 0;
    first_wrong_pc = previous_pc = previous_sp = 0;
    asm volatile("pushfq; orq %0, (%%rsp); popfq" : : "i"(TRAP_FLAG) : "memory", "cc");
    function();
    asm volatile("pushfq; andq %0, (%%rsp); popfq" : : "i"(~TRAP_FLAG) : "memory", "cc");
}

void visit_nothing() {
    asm volatile("" : : : "memory");
}

void all_shapes(std::span<const shapes::SHAPE> set) {
    for (const shapes::SHAPE& shape : set) shape.run(visit_nothing, shape.size);
}

// Binds at the first call, while it is stepped.
void lazy_binding() {
    void* module = dlopen(UNWIND_PLUGIN_A, RTLD_LAZY);
    const auto run = reinterpret_cast<void (*)(void (*)())>(dlsym(module, "unwind_plugin"));
    run(visit_nothing);
    dlclose(module);
}

TEST(StackWalkInSingleSteps, IsRightAtEveryInstruction) {
    alignas(16) static char alternate_stack[1 << 16];
    const stack_t stack{.ss_sp = alternate_stack, .ss_flags = 0, .ss_size = sizeof alternate_stack};
    ASSERT_EQ(sigaltstack(&stack, nullptr), 0);
    struct sigaction action {};
    action.sa_sigaction = after_each_instruction;
    void (*const functions[])() = {[] { all_shapes(shapes::unoptimised()); },
                                   [] { all_shapes(shapes::optimised()); },
                                   [] { all_shapes(shapes::aggressive()); }, lazy_binding};
    for (const int stack_of_handler : {0, SA_ONSTACK}) {
        action.sa_flags = SA_SIGINFO | stack_of_handler;
        ASSERT_EQ(sigaction(SIGTRAP, &action, nullptr), 0);
        for (const auto function : functions) {
            step_through(function);
            EXPECT_GT(steps, 10000);
            EXPECT_EQ(wrong_steps, 0) << "first at " << reinterpret_cast<void*>(first_wrong_pc);
        }
    }
}

}  // namespace
