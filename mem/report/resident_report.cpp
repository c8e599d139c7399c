#include "mem/report/resident_report.h"

#include "mem/report/report_line.h"
#include "mem/report/report_trailer.h"
#include "platform/memory_limits.h"

namespace {

struct PART {
    std::int64_t MEM_RESIDENT_PARTS::*field;
    bool needs_mappings;  // known at full points only
};

// In the order of the columns.
constexpr PART parts[] = {
    {&MEM_RESIDENT_PARTS::resident, false},
    {&MEM_RESIDENT_PARTS::blocks, false},
    {&MEM_RESIDENT_PARTS::rounding, true},
    {&MEM_RESIDENT_PARTS::unknown_blocks, false},
    {&MEM_RESIDENT_PARTS::tracker_blocks, false},
    {&MEM_RESIDENT_PARTS::kept_by_threads, false},
    {&MEM_RESIDENT_PARTS::kept_in_between, false},
    {&MEM_RESIDENT_PARTS::kept_free, false},
    {&MEM_RESIDENT_PARTS::allocator_tables, false},
    {&MEM_RESIDENT_PARTS::never_touched, true},
    {&MEM_RESIDENT_PARTS::tracker_mappings, true},
    {&MEM_RESIDENT_PARTS::stacks, true},
    {&MEM_RESIDENT_PARTS::code, true},
    {&MEM_RESIDENT_PARTS::module_data, true},
    {&MEM_RESIDENT_PARTS::files, true},
    {&MEM_RESIDENT_PARTS::shared_memory, true},
    {&MEM_RESIDENT_PARTS::anonymous, true},
    {&MEM_RESIDENT_PARTS::unexplained, true},
    {&MEM_RESIDENT_PARTS::given_back, false},
};

static_assert(std::size(parts) == std::size(mem_column::of_resident) - mem_column::columns_before_parts);

void write_limit(std::ostream& out, const char* name, std::uint64_t limit) {
    MEM_REPORT_LINE line;
    line.text(name).text("\t");
    if (limit == no_memory_limit)
        line.text("none").end_row(out);
    else
        line.number(limit).end_row(out);
}

void write_point(std::ostream& out, const MEM_RESIDENT_POINT& point) {
    MEM_REPORT_LINE line;
    line.number(point.milliseconds).text("\t").number(point.event);
    line.text(point.is_full ? "\tfull" : "\tsample");
    for (const PART& part : parts) {
        line.text("\t");
        if (part.needs_mappings && !point.is_full)
            line.text("-");
        else
            line.number(point.parts.*part.field);
    }
    line.end_row(out);
}

}  // namespace

void mem_write_resident_report(std::ostream& out, const std::vector<MEM_RESIDENT_POINT>& points,
                               const MEM_RESIDENT_LIMITS& limits) {
    const MEM_REPORT_CLOCK clock;
    MEM_REPORT_LINE line;
    line.text(mem_report::resident.title).end_row(out);
    line.end_row(out);
    write_limit(out, "Limit of the cgroup", limits.cgroup);
    write_limit(out, "Limit of the address space", limits.address_space);
    line.end_row(out);
    line.titles(mem_report::resident.columns).end_row(out);
    for (const MEM_RESIDENT_POINT& point : points) write_point(out, point);
    line.text(clock.trailer()).end_row(out);
}

void mem_dump_resident_timeline(std::ostream& out) {
    CGROUP_MEMORY cgroup;
    read_cgroup_memory(0, cgroup);
    const MEM_RESIDENT_LIMITS limits = {cgroup.limit, address_space_limit(0)};
    mem_tbb_resident_timeline->read([&](const std::vector<MEM_RESIDENT_POINT>& points) {
        mem_write_resident_report(out, points, limits);
    });
}
