// A program that takes the tracker to its edges, one edge for each argument, and prints what it finds. It
// starts untracked and switches by itself.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>

#include "ktl_mem/mem.h"

namespace {

__attribute__((noinline)) void* allocate(std::size_t size) {
    void* block = std::malloc(size);
    asm volatile("" : "+r"(block) : : "memory");
    return block;
}

// Hides from the compiler that two pointers are one.
void* hidden(void* block) {
    asm volatile("" : "+r"(block));
    return block;
}

// What the library says by debug line, kept without an allocation.
char told[4096];
std::size_t told_length = 0;
bool keep_message(const char*, const char* format, va_list args) {
    told_length +=
        static_cast<std::size_t>(std::vsnprintf(told + told_length, sizeof told - told_length, format, args));
    return true;
}

void show(const char* what, const MEMORY_TRACKER_BASE& counters) {
    std::printf("%s: live %d/%lld made %lld/%lld mismatched %lld peak %lld\n", what, counters.current_blocks,
                static_cast<long long>(counters.current_bytes),
                static_cast<long long>(counters.cumulative_blocks),
                static_cast<long long>(counters.cumulative_bytes),
                static_cast<long long>(counters.cumulative_mismatched_bytes),
                static_cast<long long>(counters.peak_bytes));
}
void show_block(const char* what, const void* block) {
    MEM_ADDRESS_TRACKER site;
    std::strcpy(site.frame.file, "untouched");
    if (mem_get_address_tracker(block, site)) {
        show(what, site);
    } else {
        std::printf("%s: none, %s\n", what, site.frame.file);
    }
}
void show_module(const std::string& name) {
    MEMORY_TRACKER_BASE counters;
    if (mem_get_module_tracker(name, counters)) {
        show(name.c_str(), counters);
    } else {
        std::printf("%s: none\n", name.c_str());
    }
}
void show_statistics(const char* what) {
    const MEM_STATS stats = mem_get_stats();
    std::printf("%s: statistics %lld/%lld\n", what, static_cast<long long>(stats.current.blocks),
                static_cast<long long>(stats.current.bytes));
}

template <class ACTION>
void on_another_thread(ACTION action) {
    std::thread(action).join();
}

void modules() {
    const MEM_INITIALIZER* one = new MEM_INITIALIZER("ONE");
    const MEM_INITIALIZER* nameless = new MEM_INITIALIZER;
    std::printf("%llu modules\n", static_cast<unsigned long long>(MEM_INITIALIZER::s_init_counter));
    delete nameless;
    delete one;
    mem_enable_tracking(MEM_TRACKING_ALLOC_DEALLOC);
    allocate(64);
    show_statistics("still tracking");
}

void late_variable() {
    setenv("MEM_PRINT_LIB_LOAD", "", 1);
    const MEM_INITIALIZER one("ONE");
}

// The line that is due goes to the message callback, or past it.
void message_module() {
    for (const char* name : {"A MSG", "MSGX"}) {
        { const MEM_INITIALIZER module(name); }
        mem_set_msg_local_vdebug_callback(keep_message);
        mem_enable_tracking(MEM_TRACKING_PER_FILELINE);
        for (int i = 0; i < 8; ++i) allocate(16);
        mem_disable_tracking(MEM_TRACKING_PER_FILELINE);
        std::printf("%s: told %d\n", name, told_length != 0);
        told_length = 0;
    }
}

void switches() {
    const auto fast = MEM_TRACKING_LEAKS_FAST;
    const auto plain = MEM_TRACKING_ALLOC_DEALLOC;
    mem_enable_tracking(MEM_TRACKING_NONE);
    allocate(64);
    show_statistics("no bit");
    mem_enable_tracking(plain | fast);
    allocate(64);
    mem_disable_tracking(fast);
    allocate(64);
    show_statistics("one of two bits left");
    mem_disable_tracking(plain);
    allocate(64);
    show_statistics("no bit left");
    mem_enable_tracking(MEM_TRACKING_PER_FILELINE);
    std::printf("12 of 8: %d, 0 of 8: %d\n",
                mem_tracking_is_enabled(MEM_TRACKING_PER_FILELINE | MEM_TRACKING_PER_LIBRARY),
                mem_tracking_is_enabled(MEM_TRACKING_NONE));
}

void guards() {
    using GUARD = MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT;
    mem_set_tbb_track_alloc_dealloc(true);
    {
        const GUARD outer;
        { const GUARD inner; }
        std::printf("after the inner: %d\n", mem_get_tbb_track_alloc_dealloc());
    }
    std::printf("after the outer: %d\n", mem_get_tbb_track_alloc_dealloc());
    mem_set_tbb_track_alloc_dealloc(false);
    {
        const GUARD off_before;
        mem_set_tbb_track_alloc_dealloc(true);
    }
    std::printf("off before, on within: %d\n", mem_get_tbb_track_alloc_dealloc());
}

void sampling_points() {
    mem_set_msg_local_vdebug_callback(keep_message);
    mem_enable_tracking(MEM_TRACKING_PER_FILELINE);
    for (int i = 0; i < 17; ++i) allocate(16);
    mem_disable_tracking(MEM_TRACKING_PER_FILELINE);
    std::printf("%s", told);
}

void single_words() {
    mem_set_msg_local_vdebug_callback(keep_message);
    for (const auto word : {MEM_TRACKING_AUXILIARY_TIMELINE, MEM_TRACKING_ALLOC_DEALLOC}) {
        mem_enable_tracking(word);
        for (int i = 0; i < 20; ++i) allocate(64);
        mem_disable_tracking(word);
        show_statistics(word == MEM_TRACKING_ALLOC_DEALLOC ? "word 1" : "word 64");
    }
    std::printf("told %d\n", told_length != 0);
}

void blocked_thread() {
    mem_enable_tracking(MEM_TRACKING_ALL);
    const int first = mem_block_thread_tracking();
    const int second = mem_block_thread_tracking();
    void* block = allocate(64);
    void* freed_here = allocate(64);
    std::free(freed_here);
    const int third = mem_unblock_thread_tracking();
    std::printf("blocked before: %d %d %d %d\n", first, second, third, mem_unblock_thread_tracking());
    show_statistics("blocked");
    show_block("blocked", block);
    std::free(block);
    show_block("OTHER", nullptr);
}

char mapping[16384];

void notifications() {
    mem_notify_memory_mapping_added(mapping, 4096);
    show_statistics("word 0");
    mem_enable_tracking(MEM_TRACKING_ALL);
    mem_notify_memory_mapping_added(mapping, 4096);
    show_block("mapped", mapping);
    mem_notify_memory_mapping_removed(mapping, 4096);
    show_block("unmapped", mapping);
    show_statistics("unmapped");
    mem_notify_memory_mapping_removed(mapping, 100);
    show_block("OTHER", nullptr);
}

void queries() {
    show_module("OTHER");
    show_module("edges_host");
    mem_enable_tracking(MEM_TRACKING_PER_LIBRARY | MEM_TRACKING_PER_FILELINE);
    void* block = allocate(1024);
    show_block("block", block);
    show_block("8 bytes into it", static_cast<char*>(block) + 8);
    show_module("edges_host");
    show_module("EDGES_HOST");
    std::free(hidden(block));  // a peak
    show_block("freed", block);
    show_module("edges_host");
    show_block("OTHER", nullptr);
    mem_reset_tracking_entries();
    show_module("OTHER");
    show_block("OTHER after a reset", nullptr);
}

__attribute__((noinline)) void map(std::uint64_t size) {
    mem_notify_memory_mapping_added(mapping, size);
    asm volatile("");
}

void mismatched() {
    mem_enable_tracking(MEM_TRACKING_PER_FILELINE);
    for (const std::uint64_t size : {8128U, 8129U}) {
        map(size);
        on_another_thread([size] { mem_notify_memory_mapping_removed(mapping, size); });
    }
    map(1);
    show_block("the third", mapping);
}

void words_4_and_16() {
    mem_enable_tracking(MEM_TRACKING_PER_LIBRARY);
    void* block = allocate(1024);
    show_block("word 4", block);
    show_module("edges_host");
    mem_disable_tracking(MEM_TRACKING_PER_LIBRARY);
    mem_enable_tracking(MEM_TRACKING_LEAKS);
    void* first = allocate(1024);
    void* second = allocate(1024);
    on_another_thread([first] { std::free(first); });
    show_block("word 16", second);
    mem_enable_tracking(MEM_TRACKING_PER_FILELINE);
    void* third = allocate(1024);
    std::free(second);
    show_block("value 8 came later", third);
}

// An allocation reported where a block still lives.
void overwritten() {
    mem_enable_tracking(MEM_TRACKING_PER_FILELINE);
    void* block = allocate(1024);
    void* other = allocate(1024);
    mem_notify_memory_mapping_added(block, 100);
    show_block("new record", block);
    show_block("old record", other);
}

}  // namespace

int main(int, char** argv) {
    const std::map<std::string, void (*)()> edges = {{"modules", modules},
                                                     {"late variable", late_variable},
                                                     {"message module", message_module},
                                                     {"switches", switches},
                                                     {"guards", guards},
                                                     {"sampling points", sampling_points},
                                                     {"single words", single_words},
                                                     {"blocked thread", blocked_thread},
                                                     {"notifications", notifications},
                                                     {"queries", queries},
                                                     {"mismatched", mismatched},
                                                     {"words 4 and 16", words_4_and_16},
                                                     {"overwritten", overwritten}};
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // printing is no event
    edges.at(argv[1])();
}
