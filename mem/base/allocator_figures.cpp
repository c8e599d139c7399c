#include "mem/base/allocator_figures.h"

#include <atomic>
#include <cstddef>

#include "platform/modules.h"

namespace {

using GET_NUMBER = int (*)(const char* property, std::size_t* value);
constinit std::atomic<GET_NUMBER> get_number{nullptr};

std::uint64_t number(GET_NUMBER get, const char* property) {
    std::size_t value = 0;
    return get(property, &value) == 1 ? value : 0;
}

}  // namespace

void mem_bind_allocator_figures() {
    if (get_number.load(std::memory_order_relaxed) != nullptr) return;
    get_number.store(reinterpret_cast<GET_NUMBER>(
        GetProcAddress(GetModuleHandleA("tcmalloc_minimal"), "MallocExtension_GetNumericProperty")));
}

MEM_ALLOCATOR_FIGURES mem_read_allocator_figures() {
    MEM_ALLOCATOR_FIGURES figures;
    const GET_NUMBER get = get_number.load(std::memory_order_relaxed);
    if (get == nullptr) return figures;
    figures.in_use = number(get, "generic.current_allocated_bytes");
    figures.kept_by_threads = number(get, "tcmalloc.current_total_thread_cache_bytes");
    figures.kept_in_between =
        number(get, "tcmalloc.central_cache_free_bytes") + number(get, "tcmalloc.transfer_cache_free_bytes");
    figures.kept_free = number(get, "tcmalloc.pageheap_free_bytes");
    figures.given_back = number(get, "tcmalloc.pageheap_unmapped_bytes");
    // Nobody tells the records' size by itself: it is in the total of what the allocator has from the system,
    // and not in the heap's. The two are read at different moments.
    const std::uint64_t with_tables = number(get, "generic.total_physical_bytes");
    const std::uint64_t heap = number(get, "generic.heap_size") - figures.given_back;
    figures.tables = with_tables > heap ? with_tables - heap : 0;
    return figures;
}
