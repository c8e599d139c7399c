// Work on other threads.
#pragma once

#include <atomic>
#include <thread>
#include <vector>

template <class WORK>
void on_threads(int count, WORK work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
}

// Repeats work on other threads until the scope ends.
class Meanwhile {
  public:
    template <class WORK>
    Meanwhile(int count, WORK work) {
        for (int i = 0; i < count; ++i)
            threads.emplace_back([this, work]() mutable {
                while (!done) work();
            });
    }
    ~Meanwhile() {
        done = true;
        for (std::thread& thread : threads) thread.join();
    }

  private:
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
};
