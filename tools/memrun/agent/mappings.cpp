#include "tools/memrun/agent/mappings.h"

#include <sys/mman.h>

#include <cstdint>
#include <iterator>
#include <map>
#include <mutex>
#include <vector>

#include "ktl_mem/tracking.h"
#include "platform/kept_errno.h"
#include "tools/memrun/agent/allocator_hooks.h"
#include "tools/memrun/agent/guarded_code.h"

namespace memrun::agent {

namespace {

constexpr std::uintptr_t page_size = 4096;

struct Range {
    std::uintptr_t begin;
    std::uintptr_t end;
};

Range pages_of(const void* start, std::size_t size) {
    const auto begin = reinterpret_cast<std::uintptr_t>(start);
    return {begin, begin + ((size + page_size - 1) & ~(page_size - 1))};
}

void announce_added(const Range& range) {
    mem_notify_memory_mapping_added(reinterpret_cast<const void*>(range.begin), range.end - range.begin);
}

void announce_removed(const Range& range) {
    mem_notify_memory_mapping_removed(reinterpret_cast<const void*>(range.begin), range.end - range.begin);
}

// What has been announced and is still there: from the begin of each range to its end.
class Announced {
  public:
    void add(const Range& range) {
        const std::lock_guard<std::mutex> guard(lock_);
        ranges_[range.begin] = range.end;
    }

    bool holds_any(const Range& pages) {
        const std::lock_guard<std::mutex> guard(lock_);
        const auto behind = ranges_.lower_bound(pages.end);
        return behind != ranges_.begin() && std::prev(behind)->second > pages.begin;
    }

    // Takes the pages out. Gives the ranges that held any of them, and what stays of these.
    struct Cut {
        std::vector<Range> gone;
        std::vector<Range> kept;
    };
    Cut cut(const Range& pages) {
        Cut cut;
        const std::lock_guard<std::mutex> guard(lock_);
        auto at = ranges_.upper_bound(pages.begin);
        if (at != ranges_.begin()) --at;
        while (at != ranges_.end() && at->first < pages.end) {
            const Range found = {at->first, at->second};
            if (found.end <= pages.begin) {
                ++at;
                continue;
            }
            at = ranges_.erase(at);
            cut.gone.push_back(found);
            if (found.begin < pages.begin) cut.kept.push_back({found.begin, pages.begin});
            if (pages.end < found.end) cut.kept.push_back({pages.end, found.end});
        }
        for (const Range& range : cut.kept) ranges_[range.begin] = range.end;
        return cut;
    }

  private:
    std::mutex lock_;
    std::map<std::uintptr_t, std::uintptr_t> ranges_;
};

// Never destroyed: threads may map memory until the process is gone. Made with the tracking of this thread
// blocked, for it is no allocation of the program.
constinit Announced* announced = nullptr;

// What this thread maps while it is in here is the table's own.
constinit thread_local bool is_inside __attribute__((tls_model("initial-exec"))) = false;

// The table's own blocks are no allocations of the program.
class Inside {
  public:
    Inside() : was_blocked_(mem_block_thread_tracking()) { is_inside = true; }
    ~Inside() {
        is_inside = false;
        if (was_blocked_ == 0) mem_unblock_thread_tracking();
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

  private:
    const KEPT_ERRNO errno_is_kept_;
    const int was_blocked_;
};

bool is_of_interest() {
    return !is_inside && !is_hooked_call_guarded();
}

void take_out(const Range& pages) {
    Announced::Cut cut;
    {
        const Inside inside;
        cut = announced->cut(pages);
    }
    for (const Range& range : cut.gone) announce_removed(range);
    for (const Range& range : cut.kept) announce_added(range);
    const Inside inside;
    cut = {};
}

void put_in(const Range& pages) {
    {
        const Inside inside;
        announced->add(pages);
    }
    announce_added(pages);
}

// These run on the stack of the call: no frame between them and the allocator's stand-in may be missing, or
// the charged line is another one.
void on_mmap(const void* result, const void*, std::size_t size, int protection, int flags, int, off_t) {
    if (result == MAP_FAILED || !is_of_interest()) return;
    const bool is_anonymous = (flags & MAP_ANONYMOUS) != 0 && (flags & MAP_TYPE) == MAP_PRIVATE;
    const Range pages = pages_of(result, size);
    if ((flags & MAP_FIXED) != 0) take_out(pages);
    if (is_anonymous && protection != PROT_NONE) put_in(pages);
}

// Before the pages go, so that nobody has got them again meanwhile.
void on_munmap(const void* start, std::size_t size) {
    if (is_of_interest()) take_out(pages_of(start, size));
}

void on_mremap(const void* result, const void* old, std::size_t old_size, std::size_t size, int,
               const void*) {
    if (result == MAP_FAILED || !is_of_interest()) return;
    const Range before = pages_of(old, old_size);
    if (!announced->holds_any(before)) return;
    take_out(before);
    put_in(pages_of(result, size));
}

}  // namespace

void announce_mappings() {
    announced = new Announced;
    attach_hook("MallocHook_AddMmapHook", on_mmap);
    attach_hook("MallocHook_AddMunmapHook", on_munmap);
    attach_hook("MallocHook_AddMremapHook", on_mremap);
}

}  // namespace memrun::agent
