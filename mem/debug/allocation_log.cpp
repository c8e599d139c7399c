#include "mem/debug/allocation_log.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "ktl_mem/debug_patterns.h"
#include "mem/base/allocator_slots.h"
#include "mem/base/messages.h"
#include "mem/base/spin_lock.h"
#include "mem/base/thread_state.h"
#include "platform/kept_errno.h"
#include "platform/output_file.h"
#include "platform/thread.h"

namespace {

constexpr const char* log_name = "mem_allocations.log";
constexpr int owned = 1;

constexpr int closed = -1;
constinit std::atomic<int> mem_allocations_log{closed};

// Threads that may hold the file. The order of the accesses to the two words matters: a writer counts itself
// in before it reads the file, and the closer clears the file before it reads the count.
constinit std::atomic<int> writers{0};

// This thread's turn to write one line: what the writing itself allocates has no line, and errno is kept.
class LINE_SCOPE {
  public:
    LINE_SCOPE() {
        mem_thread_state.log_allowed = false;
        writers.fetch_add(1);
    }
    ~LINE_SCOPE() {
        writers.fetch_sub(1);
        mem_thread_state.log_allowed = true;
    }
    LINE_SCOPE(const LINE_SCOPE&) = delete;
    LINE_SCOPE& operator=(const LINE_SCOPE&) = delete;

    // Each line is one write to the file: a process that is killed or forks loses and doubles nothing.
    __attribute__((format(printf, 2, 3))) void write(const char* format, ...) {
        const int log = mem_allocations_log.load();
        if (log == closed) return;
        char line[128];
        va_list args;
        va_start(args, format);
        const int length = std::vsnprintf(line, sizeof(line), format, args);
        va_end(args);
        write_output(log, {line, static_cast<std::size_t>(length)});
    }

  private:
    const THREAD_NOT_CANCELLED writing;
    const KEPT_ERRNO errno_is_kept;
};

// A closed log is seen here already, so that a closer that waits for the writers sees their number fall.
bool may_log(const void* block) {
    return block != nullptr && MallocExtension_GetOwnership(block) == owned && mem_thread_state.log_allowed &&
           mem_allocations_log.load() != closed;
}

bool open_log() {
    if (mem_allocations_log.load() != closed) return true;
    const MEM_BLOCK_TRACKING_SCOPE not_an_event;
    const int log = open_output_file(log_name, OUTPUT::EMPTIED);
    if (log < 0) {
        mem_msg_debug("can't create \"%s\": %s; the allocation log stays off", log_name,
                      std::strerror(errno));
        return false;
    }
    mem_allocations_log.store(log);
    return true;
}

void detach_hooks() {
    MallocHook_RemoveDeleteHook(mem_log_free_hook);
    MallocHook_RemoveNewHook(mem_log_alloc_hook);
}

}  // namespace

void mem_log_alloc_hook(const void* block, std::size_t size) {
    if (!may_log(block)) return;
    LINE_SCOPE line;
    line.write("ptr=%p, size=%llu, type=alloc\n", block, static_cast<unsigned long long>(size));
}

void mem_log_free_hook(const void* block) {
    if (!may_log(block)) return;
    LINE_SCOPE line;
    const auto size = static_cast<long long>(tc_malloc_size(const_cast<void*>(block)));
    line.write("ptr=%p, size=%lli, type=free\n", block, size);
}

void mem_set_print_allocations_callback_enabled(bool enable) {
    if (!enable) {
        detach_hooks();
        return;
    }
    if (!open_log()) return;
    MallocHook_AddNewHook(mem_log_alloc_hook);
    MallocHook_AddDeleteHook(mem_log_free_hook);
}

void mem_close_allocation_log() {
    if (mem_allocations_log.load() == closed) return;
    detach_hooks();
    const int log = mem_allocations_log.exchange(closed);
    // A line of this very thread can't be waited for.
    if (log == closed || !mem_thread_state.log_allowed) return;
    MEM_BACK_OFF back_off;
    while (writers.load() != 0) back_off.wait();
    close_output_file(log);
}

void mem_forget_allocation_log() {
    mem_allocations_log.store(closed);
}
