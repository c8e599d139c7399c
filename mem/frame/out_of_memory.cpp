#include "mem/frame/out_of_memory.h"

#include <atomic>
#include <cstdio>

#include "ktl_mem/out_of_memory.h"
#include "ktl_mem/process_memory.h"
#include "mem/base/allocator_slots.h"
#include "mem/base/counted_lock.h"
#include "mem/base/scarcity.h"
#include "mem/base/thread_state.h"
#include "mem/frame/process_end.h"
#include "mem/frame/reserves.h"
#include "platform/new_mode.h"
#include "platform/process_memory.h"
#include "platform/standard_streams.h"
#include "platform/thread_wrappers.h"

namespace {

std::atomic<void (*)()> mem_out_of_memory_callback{nullptr};

void write_default_message(std::uint64_t peak) {
    constexpr std::uint64_t megabyte = 1'000'000;
    char message[64];
    std::snprintf(message, sizeof message, "\nOut of memory (%d megabytes used)\n",
                  static_cast<std::int32_t>(peak / megabyte));
    write_without_hanging(stderr, message);
}

void flush_streams() {
    flush_without_hanging(stdout);
    flush_without_hanging(stderr);
}

// Every hold is given back, those of the callers too: none of them gets control again, and the exit actions
// can wait for threads that want this lock.
[[noreturn]] void release_and_exit() {
    mem_lock.unlock_all();
    mem_exit(1);
}

void report_once() {
    if (mem_in_out_of_memory.exchange(true)) return;
    mem_free_reserve_buffers();
    void (*const handler)() = mem_out_of_memory_callback.load();
    if (handler != nullptr) {
        handler();
        return;
    }
    flush_streams();
    write_default_message(mem_info_get_process_peak_virtual_used_from_os());
}

// Locks of the tracker may be held and its data be half changed. Neither the host's code nor an exit action
// can run on that, nor can this thread wait for another: that one may want a lock which is held here.
[[noreturn]] void end_inside_tracker() {
    flush_streams();
    if (!mem_in_out_of_memory.exchange(true)) {
        mem_free_reserve_buffers();
        PROCESS_MEMORY_COUNTERS counters;
        K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
        write_default_message(counters.PeakPagefileUsage);
    }
    write_without_hanging(stderr, "MEM: memory ran out inside the tracker, no reports are written\n");
    mem_terminate(1);
}

// What the message will need, used once while there is memory.
void warm_up() {
    if (_fileno(stderr) >= 0) {
        std::fprintf(stderr, "%s", "");
        std::fflush(stderr);
    }
    mem_info_get_process_peak_virtual_used_from_os();
}

}  // namespace

void mem_out_of_memory() {
    if (mem_thread_state.in_tracker || mem_thread_state.holds_gate) end_inside_tracker();
    mem_lock.lock();
    try {
        report_once();
    } catch (...) {
        // In here, because the unwinding of a thread that is cancelled must not be seen to stop.
        release_and_exit();
    }
    release_and_exit();
}

int mem_new_handler(std::size_t /*size*/) {
    mem_memory_is_scarce = true;
    if (mem_thread_state.in_tracker && mem_spend_reserve()) return 1;
    if (mem_thread_state.writes_reports) return 0;
    mem_out_of_memory();
}

void mem_renew_out_of_memory_modes() {
    if (tc_set_new_mode != nullptr) tc_set_new_mode(1);
    tbbx_set_new_mode(1);
    _set_new_mode(1);
    _set_new_handler(mem_new_handler);
    thr_set_new_handler(mem_out_of_memory);
}

void mem_set_out_of_memory_handler(void (*handler)()) {
    mem_renew_out_of_memory_modes();
    mem_out_of_memory_callback.store(handler);
    warm_up();
}

bool mem_is_out_of_memory() {
    return mem_in_out_of_memory.load();
}
