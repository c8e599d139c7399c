// Counts every event of the allocator beside the tracker, in the same process, and prints what both say.
// Four threads allocate, and each frees what others have allocated.
#include <gperftools/malloc_hook_c.h>

#include <array>
#include <atomic>
#include <iostream>
#include <map>
#include <sstream>

#include "ktl_mem/mem.h"
#include "tests/bins/on_threads.h"
#include "tests/process/behaviour.h"

extern "C" std::size_t tc_malloc_size(void* block);

namespace {

struct COLUMN {
    const char* title;
    std::atomic<std::int64_t> counted{0};
};
COLUMN current_bytes{"Current bytes"}, cumulative_bytes{"Cumulative bytes"},
    requested_bytes{"Cumulative requested bytes"}, mismatched_bytes{"Cumulative mismatched bytes"},
    current_blocks{"Current blocks"}, cumulative_blocks{"Cumulative blocks"};

// What the tracker allocates for itself is no event of the program. It happens inside the tracker's hook,
// hence between a hook of ours in front of it and one behind it.
constinit thread_local int depth = 0;
constinit thread_local int thread_number = 0;

// Which thread allocated a block, for a gibibyte of addresses. Touched where there are blocks.
constexpr std::size_t grains = std::size_t{1} << 27;
unsigned char allocated_by[grains];
std::atomic_ref<unsigned char> allocator_of(const void* block) {
    return std::atomic_ref(allocated_by[(reinterpret_cast<std::uintptr_t>(block) >> 3) % grains]);
}

std::int64_t size_of(const void* block) {
    return static_cast<std::int64_t>(tc_malloc_size(const_cast<void*>(block)));
}

void before_new(const void* block, std::size_t requested) {
    if (depth++ != 0 || block == nullptr) return;
    current_bytes.counted += size_of(block);
    cumulative_bytes.counted += size_of(block);
    requested_bytes.counted += static_cast<std::int64_t>(requested);
    ++current_blocks.counted;
    ++cumulative_blocks.counted;
    allocator_of(block) = static_cast<unsigned char>(thread_number);
}

void before_delete(const void* block) {
    if (depth++ != 0 || block == nullptr) return;
    current_bytes.counted -= size_of(block);
    --current_blocks.counted;
    if (allocator_of(block) != thread_number && size_of(block) <= 8128)
        mismatched_bytes.counted += size_of(block);
}

void* allocate(std::size_t i, std::size_t size) {
    if (i % 13 == 0) return std::aligned_alloc(64, 640);
    if (i % 11 == 0) return std::calloc(3, size);
    return i % 7 == 0 ? std::realloc(std::malloc(100), size) : std::malloc(size);
}

void work(int self) {
    static std::array<std::atomic<void*>, 256> places{};  // some blocks stay
    thread_number = self + 1;
    std::map<std::size_t, std::string> more;
    for (std::size_t i = 0; i < 10'000; ++i) {
        const std::size_t size = 1 + (i * 131 + static_cast<std::size_t>(self) * 37) % 20'000;
        std::free(places[i * 7919 % places.size()].exchange(allocate(i, size)));
        more[i % 50] = std::string(i % 70, 'x');
    }
}

// The sum of the column with that title. A report has two lines, titles, a row for each thing, and the time.
std::int64_t sum_of(const std::string& title, bool (*dump)(std::ostream&)) {
    std::stringstream report;
    dump(report);
    std::string line, field;
    for (int head = 0; head < 3; ++head) std::getline(report, line);
    int column = 0;
    for (std::istringstream titles(line); std::getline(titles, field, '\t') && field != title;) ++column;
    std::int64_t sum = 0;
    while (std::getline(report, line) && !line.starts_with("Time spent")) {
        std::istringstream fields(line);
        for (int i = 0; i <= column; ++i) std::getline(fields, field, '\t');
        sum += std::stoll(field);
    }
    return sum;
}

const BEHAVIOUR count_beside_the_tracker("count", [](char**) {
    MallocHook_AddNewHook(before_new);
    MallocHook_AddDeleteHook(before_delete);
    mem_enable_tracking(MEM_TRACKING_ALL);
    MallocHook_AddNewHook([](const void*, std::size_t) { --depth; });
    MallocHook_AddDeleteHook([](const void*) { --depth; });
    on_threads(4, work);
    const MEM_STATS stats = mem_get_stats();
    mem_disable_tracking(MEM_TRACKING_ALL);
    MallocHook_RemoveNewHook(before_new);
    MallocHook_RemoveDeleteHook(before_delete);
    const auto print = [](const char* what, std::int64_t counted, std::int64_t tracked) {
        std::cout << (counted == tracked ? "equal " : "DIFFERENT ") << what << ": counted " << counted
                  << ", tracked " << tracked << '\n';
    };
    for (const COLUMN* column : {&current_bytes, &cumulative_bytes, &requested_bytes, &mismatched_bytes,
                                 &current_blocks, &cumulative_blocks})
        for (auto* dump : {mem_dump_tbb_fileline_tracking, mem_dump_tbb_subsystem_tracking})
            print(column->title, column->counted, sum_of(column->title, dump));
    for (const COLUMN* column : {&current_bytes, &cumulative_bytes})
        for (auto* dump :
             {mem_dump_tbb_profile_bin_stats_tracking, mem_dump_tbb_profile_bin_tag_stats_tracking})
            print(column->title, column->counted, sum_of(column->title, dump));
    print("statistics of bytes", current_bytes.counted, stats.current.bytes);
    print("statistics of blocks", current_blocks.counted, stats.current.blocks);
});

}  // namespace
