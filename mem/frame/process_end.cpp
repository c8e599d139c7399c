#include "mem/frame/process_end.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include "platform/process.h"
#include "platform/process_life.h"
#include "platform/thread.h"

namespace {

constinit std::atomic<std::uint32_t> ending_thread{0};

// In a forked child no other thread is left to end it.
[[maybe_unused]] const bool renewed_in_child = [] {
    run_in_forked_child([] { ending_thread.store(0); });
    return true;
}();

bool try_claim() {
    std::uint32_t claimed_by = 0;
    const std::uint32_t self = _Thrd_id();
    return ending_thread.compare_exchange_strong(claimed_by, self) || claimed_by == self;
}

}  // namespace

void mem_claim_exit() {
    if (!try_claim()) wait_for_process_end();
}

void mem_claim_exit_action(void (*action)()) {
    if (try_claim()) return;
    std::atexit(action);
    wait_for_process_end();
}

void mem_exit(int code) {
    mem_claim_exit();
    std::exit(code);
}

void mem_terminate(int code) {
    TerminateProcess(GetCurrentProcess(), static_cast<std::uint32_t>(code));
    wait_for_process_end();  // not reached
}
