#include <gtest/gtest.h>

#include "platform/ktl_thr.h"
#include "platform/mapped_memory.h"
#include "platform/rvm_barebones.h"
#include "platform/thread_wrappers.h"

namespace {

std::string trace;
THR_WRAPPER next_of_inner, next_of_outer;

void* inner(void* first, void* second) {
    return trace += "inner ", next_of_inner(first, second);
}
void* outer(void* first, void* second) {
    return trace += "outer ", next_of_outer(first, second);
}
void* function(void* argument) {
    return trace += "function", argument;
}

TEST(ThreadLibrary, RunsAThreadInsideItsWrappersTheLatestOutermost) {
    thr_thread_set_next_wrapper_func(inner, &next_of_inner);
    thr_thread_set_next_wrapper_func(outer, &next_of_outer);
    thr_thread_set_next_wrapper_func(outer, &next_of_outer);  // would call itself for ever
    THR_THREAD* thread = nullptr;
    ASSERT_TRUE(thr_thread_start(&thread, function, &trace));
    EXPECT_EQ(thr_thread_join(thread), &trace);
    EXPECT_EQ(trace, "outer inner function");
}

TEST(MappedMemory, KnowsWhatOfItIsResident) {
    constexpr std::size_t page = 4096;
    constexpr std::size_t bytes = 20 << 20;
    const std::size_t before = resident_mapped_memory();
    auto* const memory = static_cast<volatile char*>(map_memory(bytes));
    EXPECT_EQ(resident_mapped_memory() - before, 0U);
    for (const std::size_t touched : {std::size_t{0}, 7 * page, (std::size_t{17} << 20) + 1, bytes - 1})
        memory[touched] = 1;
    EXPECT_EQ(resident_mapped_memory() - before, 4 * page);
    unmap_memory(const_cast<char*>(memory) + (10 << 20), 10 << 20);
    EXPECT_EQ(resident_mapped_memory() - before, 2 * page);
    unmap_memory(const_cast<char*>(memory), 10 << 20);
    EXPECT_EQ(resident_mapped_memory(), before);
}

struct RECORDER : RVM_BAREBONES_NOTIFIER::OBSERVER {
    explicit RECORDER(const char* label) : name(label) {}
    void mapping_added(const void*, std::uint64_t size) override { tell("+", size); }
    void mapping_removed(const void*, std::uint64_t size) override { tell("-", size); }
    void tell(const char* what, std::uint64_t size) const { trace += name + what + std::to_string(size); }
    const std::string name;
};

TEST(MappingNotifier, TellsEachObserverOnceInTheOrderOfRegistration) {
    using NOTIFIER = RVM_BAREBONES_NOTIFIER;
    RECORDER a("a"), b("b"), c("c");
    trace.clear();
    for (RECORDER* const observer : {&a, &b, &a, &c}) NOTIFIER::add_observer(observer);
    NOTIFIER::announce_added(nullptr, 1);
    NOTIFIER::remove_observer(&b);
    NOTIFIER::announce_removed(&a, 2);
    NOTIFIER::add_observer(&b);
    NOTIFIER::announce_added(&a, 3);
    EXPECT_EQ(trace, "a+1b+1c+1a-2c-2a+3c+3b+3");
    for (RECORDER* const observer : {&a, &b, &c}) NOTIFIER::remove_observer(observer);
}

}  // namespace
