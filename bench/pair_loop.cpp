// The loads of the comparisons: blocks of 16 to 271 bytes. Prints nanoseconds of processor time for a pair of
// an allocation and a free, and millions of pairs a second over all threads.
//
//   bench_pair_loop [THREADS [PAIRS [LIVE_BLOCKS [LOAD [DEPTH]]]]]      pairs and blocks of each thread
//
//   pairs        frees and allocates one of the live blocks at a time, from sixteen places in the code, ten
//                frames deep (default)
//   one-place    the same, all threads from one place
//   many-places  the same, from ten thousand places
//   descent      the same, but every pair has another stack than the one before: a recursive descent that
//                goes down and up at random
//   grow         allocates only; an allocation counts as a pair
//   shrink       frees only; a free counts as a pair
//   pass         one thread of two allocates, the other one frees; a pair is of both
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>
#include <utility>
#include <vector>

#include "bench/places.h"

namespace {

constexpr int deepest_descent = 14;

// Blocks on their way from one thread to another.
class BELT {
  public:
    void put(void* block) { slot(put_next, false).store(block, std::memory_order_release); }
    void* take() {
        std::atomic<void*>& full = slot(take_next, true);
        void* block = full.load(std::memory_order_relaxed);
        full.store(nullptr, std::memory_order_release);
        return block;
    }

  private:
    // The next slot, once it has a block or none.
    std::atomic<void*>& slot(std::size_t& next, bool has_block) {
        std::atomic<void*>& one = slots[next++ % slots.size()];
        while ((one.load(std::memory_order_acquire) != nullptr) != has_block) std::this_thread::yield();
        return one;
    }

    std::array<std::atomic<void*>, 256> slots{};
    alignas(64) std::size_t put_next = 0;
    alignas(64) std::size_t take_next = 0;
};

struct SETTING {
    int threads = 1;
    std::uint64_t pairs = 2'000'000;
    std::size_t live_blocks = 100'000;
    const char* load = "pairs";
    int depth = 10;

    bool is(const char* name) const { return std::strcmp(load, name) == 0; }
    std::size_t places_in_use() const { return is("one-place") ? 1 : is("many-places") ? most_places : 16; }
    std::size_t blocks() const { return is("grow") || is("shrink") ? pairs : is("pass") ? 0 : live_blocks; }
    double all_pairs() const {
        return static_cast<double>(pairs) * (is("pass") && threads > 1 ? threads / 2 : threads);
    }
};

class LOAD {
  public:
    LOAD(const SETTING& wanted, int thread, BELT& passing)
        : setting(wanted),
          number_of_places(wanted.places_in_use()),
          me(thread),
          belt(passing),
          random(static_cast<std::uint32_t>(thread) * 2654435761U + 1),
          blocks(wanted.blocks()) {
        if (!setting.is("grow"))
            for (void*& block : blocks) block = allocate();
        if (!setting.is("grow") && !setting.is("shrink") && !setting.is("pass")) replace(setting.pairs / 20);
    }
    ~LOAD() {
        for (void* block : blocks) std::free(block);
    }
    LOAD(const LOAD&) = delete;
    LOAD& operator=(const LOAD&) = delete;

    // Calls itself until it is deep enough, so that a walker has frames to walk.
    void run() { run(setting.is("descent") ? 0 : setting.depth); }
    __attribute__((noinline)) void run(int frames_to_go) {
        if (frames_to_go > 0) {
            run(frames_to_go - 1);
            asm volatile("" : : : "memory");
        } else if (setting.is("descent")) {
            for (std::uint64_t done = 0; done < setting.pairs;) descend(deepest_descent, done);
        } else if (setting.is("grow")) {
            for (void*& block : blocks) block = allocate();
        } else if (setting.is("shrink")) {
            for (void*& block : blocks) std::free(std::exchange(block, nullptr));
        } else if (setting.is("pass")) {
            pass();
        } else {
            replace(setting.pairs);
        }
    }

  private:
    std::uint32_t next_number() {
        random ^= random << 13;
        random ^= random >> 17;
        random ^= random << 5;
        return random;
    }
    void* allocate() {
        const std::size_t place = next_number() % number_of_places;
        return places[place](16 + next_number() % 256);
    }
    void replace(std::uint64_t pairs) {
        for (std::uint64_t i = 0; i < pairs; ++i) replace_one();
    }
    void replace_one() {
        void*& block = blocks[next_number() % blocks.size()];
        std::free(block);
        block = allocate();
    }
    __attribute__((noinline)) void descend(int frames_to_go, std::uint64_t& done) {
        replace_one();
        ++done;
        if (frames_to_go == 0) return;
        descend(frames_to_go - 1, done);
        if ((next_number() & 4) != 0) descend(std::max(frames_to_go - 2, 0), done);
        asm volatile("" : : : "memory");
    }
    void pass() {
        for (std::uint64_t i = 0; i < setting.pairs; ++i) {
            if (setting.threads == 1 || me % 2 == 0) belt.put(allocate());
            if (setting.threads == 1 || me % 2 != 0) std::free(belt.take());
        }
    }

    const SETTING& setting;
    const std::size_t number_of_places;
    const int me;
    BELT& belt;
    std::uint32_t random;
    std::vector<void*> blocks;
};

// Of all threads; unlike wall time it shows the cost on a busy machine, too.
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
RESULT time_one_thread(const SETTING& setting) {
    BELT belt;
    LOAD load(setting, 0, belt);
    return time([&] { load.run(); });
}

RESULT time_threads(const SETTING& setting) {
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<BELT> belts(static_cast<std::size_t>(setting.threads + 1) / 2);
    std::vector<std::thread> all;
    for (int me = 0; me < setting.threads; ++me)
        all.emplace_back([&, me] {
            LOAD load(setting, me, belts[static_cast<std::size_t>(me) / 2]);
            ++ready;
            while (!go) std::this_thread::yield();
            load.run();
            ++ready;
            while (go) std::this_thread::sleep_for(std::chrono::microseconds(200));
        });
    while (ready < setting.threads) std::this_thread::yield();
    const RESULT result = time([&] {
        go = true;
        while (ready < 2 * setting.threads) std::this_thread::sleep_for(std::chrono::microseconds(200));
    });
    go = false;
    for (std::thread& thread : all) thread.join();
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    SETTING setting;
    if (argc > 1) setting.threads = std::atoi(argv[1]);
    if (argc > 2) setting.pairs = std::strtoull(argv[2], nullptr, 10);
    if (argc > 3) setting.live_blocks = std::strtoull(argv[3], nullptr, 10);
    if (argc > 4) setting.load = argv[4];
    if (argc > 5) setting.depth = std::atoi(argv[5]);
    const RESULT result = setting.threads == 1 ? time_one_thread(setting) : time_threads(setting);
    std::fprintf(stderr, "%.1f ns of processor time a pair, %.3f million pairs a second\n",
                 result.cpu * 1e9 / setting.all_pairs(), setting.all_pairs() / result.wall / 1e6);
}
