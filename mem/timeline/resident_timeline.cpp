#include "mem/timeline/resident_timeline.h"

#include "mem/base/undestroyed.h"
#include "platform/clock.h"
#include "platform/mapped_memory.h"
#include "platform/process_memory.h"

MEM_RESIDENT_TIMELINE* mem_tbb_resident_timeline = nullptr;

namespace {

// So that full points never cost more than a thirtieth of the time while the program grows fast. There are
// few of them in any case: each takes an eighth more than the last one.
constexpr std::int32_t pause_per_cost = 30;

// Half a page of text a mapping is too much for the stack of an event.
constinit MEM_UNDESTROYED<MAPPING_BUFFERS> buffers;
constinit MEM_SPIN_LOCK buffers_lock;

std::int64_t resident_size() {
    return static_cast<std::int64_t>(resident_memory());
}

}  // namespace

std::optional<MEM_RESIDENT_PARTS> mem_take_resident_apart(const MEM_TRACKED_BLOCKS& tracked) {
    const std::unique_lock alone(buffers_lock, std::try_to_lock);
    if (!alone) return std::nullopt;
    MEM_MAPPING_SORTER sorter(buffers.object);
    if (!visit_process_mappings(sorter, buffers.object)) return std::nullopt;
    MEM_TRACKED_BLOCKS all = tracked;
    all.mappings = static_cast<std::int64_t>(resident_mapped_memory());
    return mem_make_resident_parts(resident_size(), all, mem_read_allocator_figures(), sorter.sorted());
}

bool MEM_RESIDENT_TIMELINE::is_full_point_due(std::int64_t blocks) {
    const std::unique_lock guard(lock);
    return blocks >= next_full_blocks && clock_ms() >= next_full_ms;
}

void MEM_RESIDENT_TIMELINE::append(const MEM_RESIDENT_POINT& point) {
    const std::unique_lock guard(lock);
    points.push_back(point);
}

void MEM_RESIDENT_TIMELINE::note(std::uint64_t event, const MEM_TRACKED_BLOCKS& tracked) {
    MEM_RESIDENT_POINT point;
    point.milliseconds = clock_ms();
    point.event = event;
    point.parts = mem_make_resident_parts(resident_size(), tracked, mem_read_allocator_figures(), {});
    point.parts.never_touched = 0;
    point.parts.unexplained = 0;
    append(point);
}

void MEM_RESIDENT_TIMELINE::note_full(std::uint64_t event, const MEM_TRACKED_BLOCKS& tracked) {
    const std::int32_t begin = clock_ms();
    const auto parts = mem_take_resident_apart(tracked);
    if (!parts) return note(event, tracked);
    append({.milliseconds = begin, .event = event, .is_full = true, .parts = *parts});
    const std::unique_lock guard(lock);
    next_full_blocks = tracked.heap + tracked.heap / 8;
    next_full_ms = clock_ms() + pause_per_cost * (clock_ms() - begin + 1);
}
