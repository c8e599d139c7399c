#include "tools/memview/resident_parts.h"

#include <algorithm>

#include "tools/memview/units.h"

namespace memview {
namespace {

// Parts from this share of the resident size on are worth a sentence.
constexpr std::int64_t large_share = 10;

const char* name_of(ResidentIndex part) {
    switch (part) {
        case BLOCKS:
            return "blocks in use, as asked for";
        case ROUNDING:
            return "rounding of blocks in use";
        case UNKNOWN_BLOCKS:
            return "blocks from before tracking";
        case TRACKER_BLOCKS:
            return "the tracker, on the heap";
        case KEPT_BY_THREADS:
            return "freed, kept in caches of threads";
        case KEPT_IN_BETWEEN:
            return "freed, kept on pages in use";
        case KEPT_FREE:
            return "freed, kept as whole pages";
        case ALLOCATOR_TABLES:
            return "tables of the allocator";
        case NEVER_TOUCHED:
            return "of these, never in memory";
        case TRACKER_MAPPINGS:
            return "the tracker, beside the heap";
        case STACKS:
            return "stacks of threads";
        case CODE:
            return "code and constants";
        case MODULE_DATA:
            return "variables of program and libraries";
        case FILES:
            return "mapped files";
        case SHARED_MEMORY:
            return "shared memory";
        case ANONYMOUS:
            return "mapped without a file";
        case UNEXPLAINED:
            return "unexplained";
        case RESIDENT:
        case GIVEN_BACK:
            break;
    }
    return "";
}

std::string advice_on(ResidentIndex part, std::int64_t bytes) {
    switch (part) {
        case BLOCKS:
            return "The program asked for this; the call sites say who.";
        case ROUNDING:
            return "Sizes are rounded up to those that the allocator has; sizes just above one of them cost "
                   "most.";
        case KEPT_BY_THREADS:
            return "TCMALLOC_MAX_TOTAL_THREAD_CACHE_BYTES bounds it.";
        case KEPT_IN_BETWEEN:
            return "Fragments: each of these pages still holds a block in use. Allocate what lives long "
                   "apart from "
                   "what lives short.";
        case KEPT_FREE:
            return "MallocExtension_ReleaseFreeMemory gives up to " + human_bytes(bytes) +
                   " back; TCMALLOC_RELEASE_RATE=10 does so by itself.";
        case TRACKER_BLOCKS:
        case TRACKER_MAPPINGS:
            return "The program without the tracker does not have it.";
        case STACKS:
            return "Fewer threads, or less on their stacks; memory of a stack that was once used stays.";
        case CODE:
            return "Shared with other processes of the same program, for the most part.";
        case FILES:
            return "The system takes it back by itself when memory gets scarce, unless it was written.";
        case SHARED_MEMORY:
            return "Counted in every process that has used it.";
        case ANONYMOUS:
            return "Arenas of a runtime, large arrays, generated code; no allocator gave it (ktl_memrun "
                   "--mappings "
                   "says who).";
        case UNKNOWN_BLOCKS:
        case ALLOCATOR_TABLES:
        case NEVER_TOUCHED:
        case MODULE_DATA:
        case UNEXPLAINED:
        case RESIDENT:
        case GIVEN_BACK:
            break;
    }
    return {};
}

}  // namespace

std::vector<ResidentStep> resident_steps(const ResidentPoint& point) {
    const std::int64_t resident = point.parts[RESIDENT];
    std::vector<ResidentIndex> order;
    for (std::size_t i = BLOCKS; i <= ANONYMOUS; ++i)
        if (i != NEVER_TOUCHED) order.push_back(static_cast<ResidentIndex>(i));
    std::stable_sort(order.begin(), order.end(),
                     [&](ResidentIndex a, ResidentIndex b) { return point.parts[a] > point.parts[b]; });
    order.push_back(NEVER_TOUCHED);
    order.push_back(UNEXPLAINED);
    std::vector<ResidentStep> steps;
    for (const ResidentIndex part : order) {
        const std::int64_t bytes = point.parts[part];
        if (bytes == 0) continue;
        const bool is_large = bytes >= resident / large_share;
        steps.push_back({name_of(part), bytes, is_large ? advice_on(part, bytes) : std::string()});
    }
    return steps;
}

std::vector<ResidentMoment> resident_moments(const Resident& resident) {
    const ResidentPoint* last = nullptr;
    const ResidentPoint* highest = nullptr;
    const auto blocks = [](const ResidentPoint& point) {
        return point.parts[BLOCKS] + point.parts[ROUNDING];
    };
    for (const ResidentPoint& point : resident.points) {
        if (!point.is_full) continue;
        last = &point;
        if (highest == nullptr || blocks(point) > blocks(*highest)) highest = &point;
    }
    std::vector<ResidentMoment> moments;
    if (highest != last) moments.push_back({"near the peak", highest});
    if (last != nullptr) moments.push_back({"at the end", last});
    return moments;
}

}  // namespace memview
