// Work on other threads.
#pragma once

#include <atomic>
#include <thread>
#include <vector>

template <class WORK>
void on_threads(int count, WORK work) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
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
    ~Meanwhile() { done = true; }

  private:
    std::atomic<bool> done{false};
    std::vector<std::jthread> threads;  // behind the flag, so that they are joined while it is there
};
