#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

namespace {

constinit thread_local std::uint32_t cached_id __attribute__((tls_model("initial-exec"))) = 0;

// Runs before any other thread of the child exists, on its one thread.
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, [] { cached_id = 0; });

}  // namespace

std::uint32_t _Thrd_id() {
    if (cached_id == 0) cached_id = static_cast<std::uint32_t>(gettid());
    return cached_id;
}

THREAD_NOT_CANCELLED::THREAD_NOT_CANCELLED() {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_before);
}

THREAD_NOT_CANCELLED::~THREAD_NOT_CANCELLED() {
    pthread_setcancelstate(state_before, nullptr);
}

void _Thrd_yield() {
    sched_yield();
}
