// An event log of its own beside the tracker: hooks that walk each stack by the C library's unwinder and add
// up what every path holds, held at the highest total, and ever had. Takes no memory from the heap. Writes
// the file "truth", a line for each path: bytes, blocks, both at the peak, both ever, and its addresses,
// outermost first.
#include <dlfcn.h>
#include <execinfo.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ktl_mem/tracking.h"
#include "tests/process/behaviour.h"
#include "tests/process/kept.h"
#include "tests/process/module.h"

namespace {

constexpr int most_frames = 100;
struct FIGURES {
    long bytes, blocks;
};
struct PATH {
    void* frames[most_frames];
    int depth;
    FIGURES now, at_peak, ever;

    void add(long bytes, long blocks) { now = {now.bytes + bytes, now.blocks + blocks}; }
};
struct BLOCK {
    const void* address;
    long bytes;
    PATH* path;
};
PATH paths[8000];
int path_count;
BLOCK live[20000];
int live_count;
long total, highest;
struct SPIN_LOCK {
    std::atomic_flag held;
    void lock() {
        while (held.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
    }
    void unlock() { held.clear(std::memory_order_release); }
} log_lock;
thread_local bool is_logging;

std::size_t (*size_of)(void*);
void *allocator, *tracker;  // where their modules begin

void* module_of(void* address) {
    dl_find_object found;
    return _dl_find_object(address, &found) == 0 ? found.dlfo_map_start : nullptr;
}

// Null for what the tracker itself does.
PATH* path_of_caller() {
    void* frames[most_frames];
    const int all = backtrace(frames, most_frames);
    void** const end = frames + all;
    if (std::any_of(frames, end, [](void* pc) { return module_of(pc) == tracker; })) return nullptr;
    void** const begin =
        std::find_if(std::find_if(frames, end, [](void* pc) { return module_of(pc) == allocator; }), end,
                     [](void* pc) { return module_of(pc) != allocator; });
    const int depth = static_cast<int>(end - begin);
    PATH* const known = std::find_if(paths, paths + path_count, [&](const PATH& path) {
        return path.depth == depth && std::equal(begin, end, path.frames);
    });
    if (known != paths + path_count) return known;
    if (++path_count == std::ssize(paths)) std::abort();
    std::copy(begin, end, known->frames);
    known->depth = depth;
    return known;
}

void log_new(const void* block, std::size_t) {
    if (block == nullptr || std::exchange(is_logging, true)) return;
    {
        const std::lock_guard guard(log_lock);
        const long bytes = static_cast<long>(size_of(const_cast<void*>(block)));
        if (PATH* const path = path_of_caller()) {
            if (live_count == std::ssize(live)) std::abort();
            live[live_count++] = {block, bytes, path};
            path->add(bytes, 1);
            path->ever = {path->ever.bytes + bytes, path->ever.blocks + 1};
            total += bytes;
        }
        if (total > highest) {
            highest = total;
            for (PATH* path = paths; path != paths + path_count; ++path) path->at_peak = path->now;
        }
    }
    is_logging = false;
}

void log_delete(const void* block) {
    if (block == nullptr || std::exchange(is_logging, true)) return;
    {
        const std::lock_guard guard(log_lock);
        BLOCK* const end = live + live_count;
        BLOCK* const known = std::find_if(live, end, [&](const BLOCK& one) { return one.address == block; });
        if (known != end) {
            known->path->add(-known->bytes, -1);
            total -= known->bytes;
            *known = live[--live_count];
        } else if (path_of_caller() != nullptr) {
            total -= static_cast<long>(size_of(const_cast<void*>(block)));
        }
    }
    is_logging = false;
}

template <class FUNCTION>
void find(FUNCTION& function, const char* name) {
    function = reinterpret_cast<FUNCTION>(dlsym(RTLD_DEFAULT, name));
}

void switch_log(const char* new_switch, const char* delete_switch) {
    int (*switch_new)(void (*)(const void*, std::size_t)) = nullptr;
    int (*switch_delete)(void (*)(const void*)) = nullptr;
    find(switch_new, new_switch);
    find(switch_delete, delete_switch);
    switch_new(log_new);
    switch_delete(log_delete);
}

void start_log() {
    find(size_of, "tc_malloc_size");
    allocator = module_of(reinterpret_cast<void*>(size_of));
    tracker = module_of(reinterpret_cast<void*>(mem_enable_tracking));
    void* unused[1];
    backtrace(unused, 1);  // the first one loads what it needs
    switch_log("MallocHook_AddNewHook", "MallocHook_AddDeleteHook");
}

void write_log() {
    switch_log("MallocHook_RemoveNewHook", "MallocHook_RemoveDeleteHook");
    FILE* const file = std::fopen("truth", "w");
    for (const PATH* path = paths; path != paths + path_count; ++path) {
        for (const FIGURES& figures : {path->now, path->at_peak, path->ever})
            std::fprintf(file, "%ld %ld ", figures.bytes, figures.blocks);
        for (int i = path->depth; i-- > 0;) std::fprintf(file, "%p<", path->frames[i]);
        std::fputc('\n', file);
    }
    std::fclose(file);
}

// What is logged. Blocks are kept in slots, and freed from any place.
std::array<std::atomic<char*>, 500> slots;
thread_local std::minstd_rand random_number;
std::size_t most_bytes = 4000;

__attribute__((always_inline)) inline void put(char* block) {
    delete[] slots[random_number() % slots.size()].exchange(block);
}
__attribute__((always_inline)) inline void put_inlined() {
    put(kept(new char[random_number() % most_bytes]));
}

template <int NUMBER>
void step(int depth);
constexpr std::array<void (*)(int), 3> steps = {step<0>, step<1>, step<2>};

template <int NUMBER>
__attribute__((noinline)) void step(int depth) {
    std::vector<int> numbers(random_number() % 200 + 1, NUMBER);
    put_inlined();
    if (depth > 0) steps[random_number() % steps.size()](depth - 1);
    if (depth > 0 && random_number() % 4 == 0) step<NUMBER>(depth - 1);
    if (random_number() % 50 == 0) throw std::runtime_error("step");
    std::sort(numbers.begin(), numbers.end(), [](int a, int b) {
        if (random_number() % 1000 == 0) put_inlined();
        return a > b;
    });
    put_inlined();
    asm volatile("" ::"i"(NUMBER));
}

__attribute__((noinline)) void wander(int turns) {
    for (int i = 0; i < turns; ++i) {
        try {
            steps[random_number() % steps.size()](static_cast<int>(random_number() % 5));
        } catch (const std::exception& error) {
            put(kept(new char[std::string(error.what()).size()]));
        }
    }
}

__attribute__((noinline)) void load(const char* plugin) {
    void* const handle = dlopen(plugin, RTLD_NOW);
    const auto allocate = reinterpret_cast<decltype(&module_block)>(dlsym(handle, "module_block"));
    for (int i = 0; i < 5; ++i) put(static_cast<char*>(allocate(3000)));
    dlclose(handle);
}

// The highest total comes while there is one thread.
void log_paths(char** plugins) {
    start_log();
    wander(200);
    for (char** plugin = plugins; *plugin != nullptr; ++plugin) load(*plugin);
    put(kept(new char[3'000'000]));
    wander(30);
    for (auto& slot : slots) delete[] slot.exchange(nullptr);
    most_bytes = 100;
    std::array<std::thread, 4> threads;
    for (std::thread& thread : threads) thread = std::thread(wander, 20);
    for (std::thread& thread : threads) thread.join();
    write_log();
}
const BEHAVIOUR truth{"truth", log_paths};

}  // namespace
