// What a walk costs inside an allocation hook: the rules are known, the stack is 16 frames deep, and its
// frames have no frame pointers.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "platform/ktl_err.h"
#include "platform/stack_walk.h"

namespace {

using MEASURED = void (*)(benchmark::State& state);

// 16 frames of our own; the frame size changes so that no two of them have the same rule.
template <int DEPTH>
__attribute__((noinline)) void descend(benchmark::State& state, MEASURED measured) {
    volatile char local[16 * DEPTH + 8];
    asm volatile("" : : "r"(local) : "memory");
    if constexpr (DEPTH == 0) {
        measured(state);
    } else {
        descend<DEPTH - 1>(state, measured);
    }
    asm volatile("" : : "r"(local) : "memory");
}

__attribute__((noinline)) void capture_11_of_16(benchmark::State& state) {
    ERR_UNWINDER* unwinder = ERR_UNWINDER::get_default_unwinder();
    std::uint64_t pcs[11];
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(unwinder->capture_stack(pcs, 11, 5, 0));
}

__attribute__((noinline)) void walk_frames(benchmark::State& state, bool fresh) {
    const STACK_WALK_START start = stack_walk_start(__builtin_frame_address(0));
    const auto frames = static_cast<std::int32_t>(state.range(0));
    std::uint64_t pcs[16];
    for ([[maybe_unused]] auto _ : state) {
        STACK_WALK walk(start, fresh);
        benchmark::DoNotOptimize(walk.next(pcs, frames));
        benchmark::ClobberMemory();
    }
}

void BM_Capture11Of16(benchmark::State& state) {
    descend<16>(state, capture_11_of_16);
}
void BM_Walk(benchmark::State& state) {
    descend<16>(state, [](benchmark::State& inner) { walk_frames(inner, false); });
}
void BM_WalkFresh(benchmark::State& state) {
    descend<16>(state, [](benchmark::State& inner) { walk_frames(inner, true); });
}

}  // namespace

BENCHMARK(BM_Capture11Of16);
BENCHMARK(BM_Walk)->Arg(2)->Arg(3)->Arg(11)->Arg(16);
BENCHMARK(BM_WalkFresh)->Arg(2);

BENCHMARK_MAIN();
