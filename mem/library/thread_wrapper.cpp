#include "mem/library/thread_wrapper.h"

#include <mutex>

#include "mem/base/counted_lock.h"
#include "mem/frame/out_of_memory.h"
#include "mem/frame/reserves.h"
#include "platform/thread_wrappers.h"

namespace {

THR_WRAPPER mem_next_thread_wrapper = nullptr;

// The reserves of a thread, also of one that leaves by pthread_exit or is cancelled.
struct RESERVES_IN_USE {
    RESERVES_IN_USE() {
        const std::lock_guard<MEM_COUNTED_LOCK> guard(mem_lock);
        mem_allocate_reserve_buffers();
    }
    ~RESERVES_IN_USE() {
        const std::lock_guard<MEM_COUNTED_LOCK> guard(mem_lock);
        mem_free_reserve_buffers();
    }
    RESERVES_IN_USE(const RESERVES_IN_USE&) = delete;
    RESERVES_IN_USE& operator=(const RESERVES_IN_USE&) = delete;
};

// Both arguments and the result belong to the thread library and pass through unchanged.
void* mem_thread_wrapper(void* first, void* second) {
    const RESERVES_IN_USE reserves;
    mem_renew_out_of_memory_modes();
    return mem_next_thread_wrapper(first, second);
}

}  // namespace

void mem_chain_thread_wrapper() {
    thr_thread_set_next_wrapper_func(mem_thread_wrapper, &mem_next_thread_wrapper);
}
