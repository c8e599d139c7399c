// The arena against other ways to make many small objects and drop them all together: zeroed objects, as the
// arena promises, unless a name says otherwise.
#include <benchmark/benchmark.h>

#include <boost/pool/object_pool.hpp>
#include <cstdlib>
#include <cstring>
#include <memory_resource>
#include <vector>

#include "ktl_mem/chunk_alloc.h"

namespace {

constexpr int objects = 10'000;

template <std::size_t SIZE>
struct OBJECT {
    char bytes[SIZE];
};

// `round` makes and drops all objects; the figure is for one object.
template <class ROUND>
void measure(benchmark::State& state, ROUND round) {
    for (auto _ : state) round();
    state.SetItemsProcessed(state.iterations() * objects);
}

template <std::size_t SIZE>
void chunk_alloc(benchmark::State& state) {
    measure(state, [] {
        MEM_UTILS_CHUNK_ALLOC arena;
        for (int i = 0; i < objects; ++i) benchmark::DoNotOptimize(arena.chunk_malloc(SIZE, 8));
        arena.chunk_free_memory();
    });
}

// The alignment is not known to the compiler, so the remainder is a division.
template <std::size_t SIZE>
void chunk_alloc_any_alignment(benchmark::State& state) {
    std::uint64_t alignment = 8;
    measure(state, [&] {
        MEM_UTILS_CHUNK_ALLOC arena;
        for (int i = 0; i < objects; ++i) {
            benchmark::DoNotOptimize(alignment);
            benchmark::DoNotOptimize(arena.chunk_malloc(SIZE, alignment));
        }
        arena.chunk_free_memory();
    });
}

template <std::size_t SIZE>
void monotonic(benchmark::State& state) {
    measure(state, [] {
        std::pmr::monotonic_buffer_resource arena(mem_utils_chunk_size);
        for (int i = 0; i < objects; ++i) {
            void* const block = arena.allocate(SIZE, 8);
            benchmark::DoNotOptimize(std::memset(block, 0, SIZE));
        }
    });
}

template <std::size_t SIZE>
void monotonic_not_zeroed(benchmark::State& state) {
    measure(state, [] {
        std::pmr::monotonic_buffer_resource arena(mem_utils_chunk_size);
        for (int i = 0; i < objects; ++i) benchmark::DoNotOptimize(arena.allocate(SIZE, 8));
    });
}

template <std::size_t SIZE>
void object_pool(benchmark::State& state) {
    measure(state, [] {
        boost::object_pool<OBJECT<SIZE>> pool(mem_utils_chunk_size / SIZE, mem_utils_chunk_size / SIZE);
        for (int i = 0; i < objects; ++i) benchmark::DoNotOptimize(std::memset(pool.malloc(), 0, SIZE));
    });
}

template <std::size_t SIZE>
void calloc_and_free(benchmark::State& state) {
    std::vector<void*> blocks(objects);
    measure(state, [&] {
        for (void*& block : blocks) block = std::calloc(1, SIZE);
        for (void* block : blocks) std::free(block);
    });
}

#define COMPARE(size)                           \
    BENCHMARK(chunk_alloc<size>);               \
    BENCHMARK(chunk_alloc_any_alignment<size>); \
    BENCHMARK(monotonic<size>);                 \
    BENCHMARK(monotonic_not_zeroed<size>);      \
    BENCHMARK(object_pool<size>);               \
    BENCHMARK(calloc_and_free<size>)

COMPARE(16);
COMPARE(64);
COMPARE(256);

}  // namespace

BENCHMARK_MAIN();
