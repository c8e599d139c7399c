#include "mem/debug/debug_patterns.h"

#include <cstring>
#include <string>

#include "ktl_mem/debug_patterns.h"
#include "ktl_mem/services.h"
#include "mem/base/allocator_slots.h"
#include "mem/base/configured_number.h"
#include "mem/base/thread_state.h"

MEM_PLAIN_WORD<std::uint8_t> mem_alloc_pattern_set;
MEM_PLAIN_WORD<std::int32_t> mem_alloc_pattern_value;
MEM_PLAIN_WORD<std::uint8_t> mem_free_pattern_set;
MEM_PLAIN_WORD<std::int32_t> mem_free_pattern_value;

namespace {

constexpr int owned = 1;

// The allocator runs its hooks on a block from calloc after it was zeroed, and on both ends of a realloc in
// place. The symbol services rely on both, so blocks that the library works with are left alone.
bool may_fill(const void* block) {
    return block != nullptr && MallocExtension_GetOwnership(block) == owned && !mem_thread_state.in_tracker &&
           !mem_thread_state.does_own_work;
}

void load_pattern(const char* key, int base, void (*set_pattern)(int value)) {
    const std::string text = mem_cfg_get_value(key);
    if (text.empty()) return;
    const auto value = mem_parse_configured_int(key, text, base);
    if (value) set_pattern(*value);
}

}  // namespace

void mem_alloc_pattern_hook(const void* block, std::size_t size) {
    if (may_fill(block)) std::memset(const_cast<void*>(block), mem_alloc_pattern_value, size);
}

void mem_free_pattern_hook(const void* block) {
    if (!may_fill(block)) return;
    void* const usable = const_cast<void*>(block);
    std::memset(usable, mem_free_pattern_value, tc_malloc_size(usable));
}

void mem_set_alloc_pattern(int value) {
    mem_alloc_pattern_value = value;
    mem_alloc_pattern_set = 1;
    MallocHook_AddNewHook(mem_alloc_pattern_hook);
}

void mem_set_free_pattern(int value) {
    mem_free_pattern_value = value;
    mem_free_pattern_set = 1;
    MallocHook_AddDeleteHook(mem_free_pattern_hook);
}

void mem_disable_alloc_patterns() {
    if (mem_alloc_pattern_set == 1) MallocHook_RemoveNewHook(mem_alloc_pattern_hook);
    if (mem_free_pattern_set == 1) MallocHook_RemoveDeleteHook(mem_free_pattern_hook);
    mem_alloc_pattern_set = 0;
    mem_free_pattern_set = 0;
}

void mem_load_debug_patterns() {
    load_pattern("mem_alloc_pattern", 10, mem_set_alloc_pattern);
    load_pattern("mem_alloc_pattern_hex", 16, mem_set_alloc_pattern);
    load_pattern("mem_free_pattern", 10, mem_set_free_pattern);
    load_pattern("mem_free_pattern_hex", 16, mem_set_free_pattern);
    if (mem_cfg_is_on("mem_print_allocations", false)) mem_set_print_allocations_callback_enabled(true);
}
