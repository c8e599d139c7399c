#include "mem/timeline/resident_parts.h"

#include <algorithm>

#include "mem/base/allocator_slots.h"

namespace {

std::int64_t bytes(std::uint64_t count) {
    return static_cast<std::int64_t>(count);
}

// The allocator knows the first page of each run of pages that it gave out. Where the kernel has made one
// mapping of several, one of many places inside decides.
bool belongs_to_allocator(const PROCESS_MAPPING& mapping) {
    constexpr int owned = 1;
    constexpr std::uint64_t page = 8192;
    constexpr std::uint64_t looks = 256;
    const std::uint64_t first = (mapping.begin + page - 1) & ~(page - 1);
    const std::uint64_t step = std::max(((mapping.end - mapping.begin) / looks) & ~(page - 1), page);
    for (std::uint64_t address = first; address < mapping.end; address += step)
        if (MallocExtension_GetOwnership(reinterpret_cast<const void*>(address)) == owned) return true;
    return false;
}

bool is_shared_memory(const PROCESS_MAPPING& mapping) {
    for (const char* const prefix : {"/dev/shm/", "/memfd:", "/SYSV", "/dev/zero"})
        if (mapping.name.starts_with(prefix)) return true;
    return mapping.is_shared && !mapping.has_file();
}

}  // namespace

std::int64_t& MEM_MAPPING_SORTER::place_of_private_memory(const PROCESS_MAPPING& mapping) {
    if (is_in_loaded_module(mapping.begin)) return sums.module_data;
    if (belongs_to_allocator(mapping)) return sums.allocator;
    if (mapping.begin == end_of_guard && is_top_of_thread_stack(mapping.end, buffers)) return sums.stacks;
    return sums.anonymous;
}

std::int64_t& MEM_MAPPING_SORTER::place_of(const PROCESS_MAPPING& mapping) {
    // With the allocator bound nobody else takes memory there.
    if (mapping.name == "[heap]") return tc_set_new_mode != nullptr ? sums.allocator : sums.anonymous;
    if (mapping.name == "[stack]") return sums.stacks;
    if (mapping.name.starts_with("[v")) return sums.code;
    if (mapping.name.starts_with("/memfd:ktl_mem")) return sums.tracker;
    if (is_shared_memory(mapping)) return sums.shared_memory;
    if (!mapping.has_file()) return place_of_private_memory(mapping);
    if (!is_in_loaded_module(mapping.begin)) return sums.files;
    return mapping.is_writable ? sums.module_data : sums.code;
}

void MEM_MAPPING_SORTER::visit(const PROCESS_MAPPING& mapping) {
    if (mapping.resident != 0) place_of(mapping) += bytes(mapping.resident);
    if (!mapping.is_accessible) end_of_guard = mapping.end;
}

MEM_RESIDENT_PARTS mem_make_resident_parts(std::int64_t resident, const MEM_TRACKED_BLOCKS& tracked,
                                           const MEM_ALLOCATOR_FIGURES& allocator,
                                           const MEM_RESIDENT_MAPPINGS& mappings) {
    MEM_RESIDENT_PARTS parts;
    parts.resident = resident;
    parts.rounding = std::clamp<std::int64_t>(tracked.rounding, 0, std::max<std::int64_t>(tracked.heap, 0));
    parts.blocks = tracked.heap - parts.rounding;
    parts.tracker_blocks = tracked.own;
    parts.unknown_blocks = bytes(allocator.in_use) - tracked.heap - tracked.own;
    parts.kept_by_threads = bytes(allocator.kept_by_threads);
    parts.kept_in_between = bytes(allocator.kept_in_between);
    parts.kept_free = bytes(allocator.kept_free);
    parts.allocator_tables = bytes(allocator.tables);
    parts.given_back = bytes(allocator.given_back);
    parts.never_touched = std::min<std::int64_t>(mappings.allocator - bytes(allocator.total()), 0);
    // Those that the kernel has no name for lie among the anonymous ones.
    const std::int64_t unnamed = std::clamp<std::int64_t>(tracked.mappings, 0, mappings.anonymous);
    parts.tracker_mappings = mappings.tracker + unnamed;
    parts.anonymous = mappings.anonymous - unnamed;
    parts.stacks = mappings.stacks;
    parts.code = mappings.code;
    parts.module_data = mappings.module_data;
    parts.files = mappings.files;
    parts.shared_memory = mappings.shared_memory;
    const std::int64_t heap = bytes(allocator.total()) + parts.never_touched;
    const std::int64_t beside = parts.tracker_mappings + parts.stacks + parts.code + parts.module_data +
                                parts.files + parts.shared_memory + parts.anonymous;
    parts.unexplained = resident - heap - beside;
    return parts;
}
