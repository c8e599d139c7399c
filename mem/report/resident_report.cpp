#include "mem/report/resident_report.h"

#include "mem/report/report_line.h"
#include "mem/report/report_trailer.h"
#include "platform/memory_limits.h"

namespace {

struct PART {
    const char* title;
    std::int64_t MEM_RESIDENT_PARTS::*field;
    bool needs_mappings;  // known at full points only
};

constexpr PART parts[] = {
    {"Resident", &MEM_RESIDENT_PARTS::resident, false},
    {"Blocks", &MEM_RESIDENT_PARTS::blocks, false},
    {"Rounding", &MEM_RESIDENT_PARTS::rounding, true},
    {"Unknown blocks", &MEM_RESIDENT_PARTS::unknown_blocks, false},
    {"Tracker blocks", &MEM_RESIDENT_PARTS::tracker_blocks, false},
    {"Kept by threads", &MEM_RESIDENT_PARTS::kept_by_threads, false},
    {"Kept in between", &MEM_RESIDENT_PARTS::kept_in_between, false},
    {"Kept free", &MEM_RESIDENT_PARTS::kept_free, false},
    {"Allocator tables", &MEM_RESIDENT_PARTS::allocator_tables, false},
    {"Never touched", &MEM_RESIDENT_PARTS::never_touched, true},
    {"Tracker mappings", &MEM_RESIDENT_PARTS::tracker_mappings, true},
    {"Stacks", &MEM_RESIDENT_PARTS::stacks, true},
    {"Code", &MEM_RESIDENT_PARTS::code, true},
    {"Module data", &MEM_RESIDENT_PARTS::module_data, true},
    {"Files", &MEM_RESIDENT_PARTS::files, true},
    {"Shared memory", &MEM_RESIDENT_PARTS::shared_memory, true},
    {"Anonymous", &MEM_RESIDENT_PARTS::anonymous, true},
    {"Unexplained", &MEM_RESIDENT_PARTS::unexplained, true},
    {"Given back", &MEM_RESIDENT_PARTS::given_back, false},
};

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
    line.text("MEM: Resident Memory.").end_row(out);
    line.end_row(out);
    write_limit(out, "Limit of the cgroup", limits.cgroup);
    write_limit(out, "Limit of the address space", limits.address_space);
    line.end_row(out);
    line.text("Milliseconds\tEvent\tPoint");
    for (const PART& part : parts) line.text("\t").text(part.title);
    line.end_row(out);
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
