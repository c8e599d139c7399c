#include "platform/thread.h"

#include <linux/membarrier.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "platform/kept_errno.h"

constinit thread_local std::uint32_t thread_id_kept __attribute__((tls_model("initial-exec"))) = 0;

namespace {

// Runs before any other thread of the child exists, on its one thread.
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, [] { thread_id_kept = 0; });

long membarrier(int command) {
    const KEPT_ERRNO errno_is_kept;
    return syscall(SYS_membarrier, command, 0, 0);
}

// What the ends of threads run. A bit for each action is set in the value of a thread's key, whose destructor
// runs on the ending thread.
using ACTION = void (*)();
constexpr std::uintptr_t most_actions = 4;
constinit std::atomic<ACTION> exit_actions[most_actions]{};

void run_exit_actions(void* bits) {
    for (std::uintptr_t i = 0; i < most_actions; ++i)
        if ((reinterpret_cast<std::uintptr_t>(bits) >> i & 1) != 0) exit_actions[i].load()();
}

// Its number, given at its first call; none for one too many.
std::uintptr_t number_of(ACTION action) {
    std::uintptr_t number = 0;
    for (; number < most_actions; ++number) {
        ACTION there = nullptr;
        if (exit_actions[number].compare_exchange_strong(there, action) || there == action) break;
    }
    return number;
}

pthread_key_t exit_key;
const bool has_exit_key = pthread_key_create(&exit_key, run_exit_actions) == 0;

}  // namespace

std::uint32_t ask_thread_id() {
    thread_id_kept = static_cast<std::uint32_t>(gettid());
    return thread_id_kept;
}

THREAD_NOT_CANCELLED::THREAD_NOT_CANCELLED() {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_before);
}

THREAD_NOT_CANCELLED::~THREAD_NOT_CANCELLED() {
    pthread_setcancelstate(state_before, nullptr);
}

bool is_thread_of_process(std::uint32_t id) {
    const KEPT_ERRNO errno_is_kept;
    return syscall(SYS_tgkill, getpid(), id, 0) == 0 || errno != ESRCH;
}

void _Thrd_yield() {
    sched_yield();
}

// Not by nanosleep(), which would be a cancellation point.
void _Thrd_rest() {
    const KEPT_ERRNO errno_is_kept;
    timespec left{0, 1'000'000};
    while (syscall(SYS_nanosleep, &left, &left) != 0 && errno == EINTR) {
    }
}

bool can_run_barrier_on_all_threads() {
    // No static of this function: a child that is forked while another thread makes it would wait for ever.
    // Threads that ask at once all register and get the same answer.
    enum : int { UNKNOWN, YES, NO };
    static constinit std::atomic<int> answer{UNKNOWN};
    int known = answer.load(std::memory_order_relaxed);
    if (known == UNKNOWN) {
        known = membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) == 0 ? YES : NO;
        answer.store(known, std::memory_order_relaxed);
    }
    return known == YES;
}

void barrier_on_all_threads() {
    if (!can_run_barrier_on_all_threads() || membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) == 0) return;
    // The process has entered a sandbox since, which refuses. Time does it too: what a processor has yet to
    // write leaves it within microseconds.
    _Thrd_rest();
}

bool run_at_thread_exit(void (*action)()) {
    const std::uintptr_t number = number_of(action);
    if (!has_exit_key || number == most_actions) return false;
    const auto bits = reinterpret_cast<std::uintptr_t>(pthread_getspecific(exit_key));
    return pthread_setspecific(exit_key, reinterpret_cast<void*>(bits | std::uintptr_t{1} << number)) == 0;
}
