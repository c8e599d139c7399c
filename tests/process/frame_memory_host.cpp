// A host that runs out of memory: frame_memory_host WAY HANDLER PLACE
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <string>
#include <vector>

#include "ktl_mem/out_of_memory.h"
#include "tests/tracker/all_calls.h"

namespace {

constexpr std::size_t block_bytes = 1 << 20;

void write(const char* text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}

void use_up_new() {
    for (std::vector<char*> blocks;;) blocks.push_back(new char[block_bytes]);
}

// A null ends the loop: with the C library's own malloc that is the caller's business.
void use_up_malloc() {
    while (void* const block = std::malloc(block_bytes)) static_cast<volatile char*>(block)[0] = 1;  // NOLINT
}

// A little of everything that the tracker follows.
void small_run() {
    std::thread([] { delete[] new int[100]; }).join();
    for (int round = 0; round < 3; ++round) {
        const std::string name = "phase " + std::to_string(round);
        mem_open_profile_bin(name, "tag");
        mem_set_timeline_label(name);
        std::uint64_t start = 0, end = 0, peak = 0;
        std::vector<std::string> texts;
        texts.reserve(20);
        for (int i = 0; i < 20; ++i) texts.push_back(std::string(40, 'x'));
        mem_close_profile_bin("tag", &start, &end, &peak);
    }
    if (!mem_tracking_is_enabled(MEM_TRACKING_ALL)) return;
    flush_and_sample();
    dump_everything();
    mem_reset_tracking_entries();
}

// Of the allocator that fails at a chosen allocation, which is preloaded then.
template <class FUNCTION>
FUNCTION* of_failing_allocator(const char* name) {
    return reinterpret_cast<FUNCTION*>(dlsym(RTLD_DEFAULT, name));
}

void fail_in_small_run(long number) {
    small_run();
    of_failing_allocator<void(long)>("fail_allocation")(number);
    small_run();
    std::printf("%ld\n", of_failing_allocator<long()>("allocations_seen")());
}

void (*handler_by_name(const std::string& name))() {
    if (name == "returns") return [] { write("handler\n"); };
    if (name == "throws") return [] { write("handler\n"), throw 1; };
    if (name == "again") return [] { write("handler\n"), mem_out_of_memory(); };
    if (name == "allocates") return [] { write("handler\n"), use_up_new(); };
    return nullptr;
}

void run_way(const std::string& way) {
    if (way == "new") use_up_new();
    if (way == "malloc") use_up_malloc();
    if (way == "call") mem_out_of_memory();
    if (way.starts_with("fail=")) fail_in_small_run(std::atol(way.c_str() + std::strlen("fail=")));
}

}  // namespace

int main(int, char** arguments) {
    const std::string way = arguments[1], handler = arguments[2], place = arguments[3];
    mem_set_out_of_memory_handler(handler_by_name("returns"));
    mem_set_out_of_memory_handler(handler_by_name(handler));
    std::atexit([] { write("exit action\n"); });
    const int count = place == "main" ? 0 : std::atoi(place.c_str());
    if (count == 0) run_way(way);
    std::latch all_there(count);
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            all_there.arrive_and_wait();
            run_way(way);
        });
    }
    for (std::thread& thread : threads) thread.join();
    write("end of main\n");
}
