// Counts every event of the allocator beside the tracker, in the same process, and prints what both say.
// Four threads allocate, and each frees what the thread before it has allocated.
#include <gperftools/malloc_hook_c.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ktl_mem/mem.h"

extern "C" std::size_t tc_malloc_size(void* block);

namespace {

struct COUNTS {
    std::atomic<std::int64_t> current_bytes, cumulative_bytes, requested_bytes, mismatched_bytes,
        current_blocks, cumulative_blocks;
};
COUNTS counts;

// What the tracker allocates for itself is no event of the program. It happens inside the tracker's hook,
// hence between a hook of ours in front of it and one behind it.
constinit thread_local int depth = 0;
constinit thread_local unsigned char thread_number = 0;

// Which thread allocated a block, for a gibibyte of addresses. Touched where there are blocks.
constexpr std::size_t grains = std::size_t{1} << 27;
std::atomic<unsigned char> allocated_by[grains];
std::atomic<unsigned char>& allocator_of(const void* block) {
    return allocated_by[(reinterpret_cast<std::uintptr_t>(block) >> 3) % grains];
}

void before_new(const void* block, std::size_t requested) {
    if (depth++ != 0 || block == nullptr) return;
    const auto size = static_cast<std::int64_t>(tc_malloc_size(const_cast<void*>(block)));
    counts.current_bytes += size;
    counts.cumulative_bytes += size;
    counts.requested_bytes += static_cast<std::int64_t>(requested);
    ++counts.current_blocks;
    ++counts.cumulative_blocks;
    allocator_of(block) = static_cast<unsigned char>(thread_number + 1);
}
void after_new(const void*, std::size_t) {
    --depth;
}
void before_delete(const void* block) {
    if (depth++ != 0 || block == nullptr) return;
    const auto size = static_cast<std::int64_t>(tc_malloc_size(const_cast<void*>(block)));
    counts.current_bytes -= size;
    --counts.current_blocks;
    if (allocator_of(block) != thread_number + 1 && size <= 8128) counts.mismatched_bytes += size;
}
void after_delete(const void*) {
    --depth;
}

constexpr int thread_count = 4;
constexpr int rounds = 50;
std::array<std::atomic<std::vector<void*>*>, thread_count> handed_on{};

std::size_t size_of(int round, int i) {
    return static_cast<std::size_t>(1 + round * 37 + i * 131) % 20'000;
}

void allocate_many(int round, std::vector<void*>& blocks) {
    for (int i = 0; i < 200; ++i) {
        blocks.push_back(std::malloc(size_of(round, i)));
        if (i % 7 == 0) blocks.push_back(std::realloc(std::malloc(100), size_of(round, i)));
        if (i % 11 == 0) blocks.push_back(std::calloc(3, size_of(round, i)));
        if (i % 13 == 0) blocks.push_back(std::aligned_alloc(64, 640));
    }
    std::map<int, std::string> more;
    for (int i = 0; i < 50; ++i) more[i] = std::string(static_cast<std::size_t>(i), 'x');
}

void work(int self) {
    thread_number = static_cast<unsigned char>(self + 1);
    for (int round = 0; round < rounds; ++round) {
        auto* blocks = new std::vector<void*>;
        allocate_many(round, *blocks);
        while (handed_on[static_cast<std::size_t>(self)].load() != nullptr) std::this_thread::yield();
        handed_on[static_cast<std::size_t>(self)] = blocks;
        std::vector<void*>* others = nullptr;
        while (others == nullptr)
            others = handed_on[static_cast<std::size_t>((self + 1) % thread_count)].exchange(nullptr);
        // Some stay, so that the current figures are not all zero.
        for (std::size_t i = 0; i < others->size(); ++i)
            if (i % 50 != 0) std::free((*others)[i]);
        delete others;
    }
}

// The sum of a column over all rows of a report, by the column's title.
std::int64_t sum(const std::string& report, const std::string& title) {
    std::istringstream lines(report);
    std::string line;
    std::getline(lines, line);
    std::getline(lines, line);
    std::getline(lines, line);
    std::istringstream titles(line);
    int column = 0;
    for (std::string word; std::getline(titles, word, '\t') && word != title;) ++column;
    std::int64_t total = 0;
    while (std::getline(lines, line) && !line.starts_with("Time spent")) {
        std::istringstream cells(line);
        std::string cell;
        for (int i = 0; i <= column; ++i) std::getline(cells, cell, '\t');
        total += std::stoll(cell);
    }
    return total;
}

void print(const char* title, const std::atomic<std::int64_t>& counted, const std::string& fileline,
           const std::string& subsystem) {
    std::printf("%s: %s, counted %lld, lines %lld, subsystems %lld\n",
                counted == sum(fileline, title) && counted == sum(subsystem, title) ? "equal" : "DIFFERENT",
                title, static_cast<long long>(counted), static_cast<long long>(sum(fileline, title)),
                static_cast<long long>(sum(subsystem, title)));
}

}  // namespace

int main() {
    MallocHook_AddNewHook(before_new);
    MallocHook_AddDeleteHook(before_delete);
    mem_enable_tracking(MEM_TRACKING_ALL);
    MallocHook_AddNewHook(after_new);
    MallocHook_AddDeleteHook(after_delete);
    {
        std::vector<std::thread> threads;
        for (int i = 0; i < thread_count; ++i) threads.emplace_back(work, i);
        for (std::thread& thread : threads) thread.join();
    }
    const MEM_STATS stats = mem_get_stats();
    mem_disable_tracking(MEM_TRACKING_ALL);
    MallocHook_RemoveNewHook(before_new);
    MallocHook_RemoveDeleteHook(before_delete);
    std::ostringstream fileline;
    std::ostringstream subsystem;
    mem_dump_tbb_fileline_tracking(fileline);
    mem_dump_tbb_subsystem_tracking(subsystem);
    print("Current bytes", counts.current_bytes, fileline.str(), subsystem.str());
    print("Cumulative bytes", counts.cumulative_bytes, fileline.str(), subsystem.str());
    print("Cumulative requested bytes", counts.requested_bytes, fileline.str(), subsystem.str());
    print("Cumulative mismatched bytes", counts.mismatched_bytes, fileline.str(), subsystem.str());
    print("Current blocks", counts.current_blocks, fileline.str(), subsystem.str());
    print("Cumulative blocks", counts.cumulative_blocks, fileline.str(), subsystem.str());
    std::printf("statistics: %s\n",
                stats.current.bytes == counts.current_bytes && stats.current.blocks == counts.current_blocks
                    ? "equal"
                    : "DIFFERENT");
}
