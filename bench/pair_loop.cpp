// The load of the comparisons: frees and allocates one block at a time, 16 to 271 bytes, over many live
// blocks a thread, ten frames deep, from sixteen places in the code. Prints nanoseconds of processor time for
// a pair, and millions of pairs a second over all threads.
//
//   bench_pair_loop [THREADS [PAIRS [LIVE_BLOCKS [DEPTH]]]]      pairs and blocks of each thread
//
// With depth 0 every pair has another stack than the one before: a recursive descent that goes down and up at
// random.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr int places = 16;
int depth = 10;

// A place of its own in the code for each PLACE; the empty statement keeps the compiler from removing the
// pair.
template <int PLACE>
__attribute__((noinline)) void replace(void*& block, std::size_t size) {
    std::free(block);
    block = std::malloc(size);
    asm volatile("" : : "r"(block) : "memory");
}

using REPLACE = void (*)(void*&, std::size_t);

template <int... PLACE>
constexpr std::array<REPLACE, sizeof...(PLACE)> all_places(std::integer_sequence<int, PLACE...>) {
    return {replace<PLACE>...};
}

class LOAD {
  public:
    LOAD(std::uint32_t seed, std::size_t live_blocks) : random(seed), blocks(live_blocks) {
        for (void*& block : blocks) block = std::malloc(next_size());
    }
    ~LOAD() {
        for (void* block : blocks) std::free(block);
    }
    LOAD(const LOAD&) = delete;
    LOAD& operator=(const LOAD&) = delete;

    // Calls itself until it is deep enough, so that a walker has frames to walk.
    __attribute__((noinline)) void run(std::uint64_t pairs, int frames_to_go) {
        if (frames_to_go > 0) {
            run(pairs, frames_to_go - 1);
            asm volatile("" : : : "memory");
            return;
        }
        constexpr int descent_depth = 14;
        if (depth == 0)
            for (std::uint64_t done = 0; done < pairs;) descend(descent_depth, done);
        else
            replace_all(pairs);
    }

  private:
    void replace_all(std::uint64_t pairs) {
        static constexpr auto replacers = all_places(std::make_integer_sequence<int, places>());
        for (std::uint64_t i = 0; i < pairs; ++i) {
            const std::uint32_t number = next_number();
            replacers[number % places](blocks[(number >> 4) % blocks.size()], next_size());
        }
    }
    __attribute__((noinline)) void descend(int frames_to_go, std::uint64_t& done) {
        const std::uint32_t number = next_number();
        replace<0>(blocks[(number >> 4) % blocks.size()], next_size());
        ++done;
        if (frames_to_go == 0) return;
        descend(frames_to_go - 1, done);
        if ((number & 4) != 0) descend(std::max(frames_to_go - 2, 0), done);
        asm volatile("" : : : "memory");
    }
    std::uint32_t next_number() {
        random ^= random << 13;
        random ^= random >> 17;
        random ^= random << 5;
        return random;
    }
    std::size_t next_size() { return 16 + next_number() % 256; }

    std::uint32_t random;
    std::vector<void*> blocks;
};

// Of all threads; unlike wall time it tells the cost also on a machine that others use.
double cpu_seconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

struct RESULT {
    double wall;  // seconds
    double cpu;   // seconds, of all threads
};

template <class WORK>
RESULT time(WORK work) {
    const auto start = std::chrono::steady_clock::now();
    const double cpu_start = cpu_seconds();
    work();
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    return {wall.count(), cpu_seconds() - cpu_start};
}

// In a process that never starts a thread.
RESULT time_one_thread(std::uint64_t pairs, std::size_t live_blocks) {
    LOAD load(1, live_blocks);
    load.run(pairs / 20, depth);
    return time([&] { load.run(pairs, depth); });
}

RESULT time_threads(int threads, std::uint64_t pairs, std::size_t live_blocks) {
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> all;
    for (int me = 0; me < threads; ++me)
        all.emplace_back([&, me] {
            LOAD load(static_cast<std::uint32_t>(me) * 2654435761U + 1, live_blocks);
            load.run(pairs / 20, depth);
            ++ready;
            while (!go) std::this_thread::yield();
            load.run(pairs, depth);
            ++ready;
            while (go) std::this_thread::sleep_for(std::chrono::microseconds(200));
        });
    while (ready < threads) std::this_thread::yield();
    const RESULT result = time([&] {
        go = true;
        while (ready < 2 * threads) std::this_thread::sleep_for(std::chrono::microseconds(200));
    });
    go = false;
    for (std::thread& thread : all) thread.join();
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    const int threads = argc > 1 ? std::atoi(argv[1]) : 1;
    const std::uint64_t pairs = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 2000000;
    const std::size_t live_blocks = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 100000;
    if (argc > 4) depth = std::atoi(argv[4]);
    const RESULT result =
        threads == 1 ? time_one_thread(pairs, live_blocks) : time_threads(threads, pairs, live_blocks);
    const double all_pairs = static_cast<double>(pairs) * threads;
    std::fprintf(stderr, "%.1f ns of processor time a pair, %.3f million pairs a second\n",
                 result.cpu * 1e9 / all_pairs, all_pairs / result.wall / 1e6);
}
