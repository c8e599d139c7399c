#include "platform/thread_aside.h"

#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <memory>
#include <new>

namespace {

// Stays for the one of both that ends last.
struct RUN {
    void (*action)();
    sem_t is_over;

    explicit RUN(void (*of)()) : action(of) { sem_init(&is_over, 0, 0); }
    ~RUN() { sem_destroy(&is_over); }
    RUN(const RUN&) = delete;
    RUN& operator=(const RUN&) = delete;
};
using SHARED_RUN = std::shared_ptr<RUN>;

void* run(void* argument) {
    const std::unique_ptr<SHARED_RUN> held(static_cast<SHARED_RUN*>(argument));
    (*held)->action();
    sem_post(&(*held)->is_over);
    return nullptr;
}

bool start_thread(SHARED_RUN* argument) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    const bool is_started = pthread_create(&thread, nullptr, run, argument) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (is_started) pthread_detach(thread);
    return is_started;
}

timespec in_milliseconds(int count) {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += count / 1000;
    time.tv_nsec += count % 1000 * 1'000'000L;
    if (time.tv_nsec >= 1'000'000'000L) {
        ++time.tv_sec;
        time.tv_nsec -= 1'000'000'000L;
    }
    return time;
}

}  // namespace

void run_aside(void (*action)(), int longest_wait_ms) {
    const auto shared = std::make_shared<RUN>(action);
    auto argument = std::make_unique<SHARED_RUN>(shared);
    if (!start_thread(argument.get())) return;
    static_cast<void>(argument.release());
    const timespec end = in_milliseconds(longest_wait_ms);
    while (sem_clockwait(&shared->is_over, CLOCK_MONOTONIC, &end) != 0 && errno == EINTR) continue;
}
