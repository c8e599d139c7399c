#include "tools/reports/report_kinds.h"

namespace memview {

const TableKind* table_kind(std::string_view kind) {
    constexpr int MAXIMA = 2;
    static constexpr TableKind KINDS[] = {
        {.report = mem_report::call_sites, .key = "sites", .indexed = true, .closing_line = true},
        {.report = mem_report::modules, .key = "modules", .closing_line = true, .optional_column = MAXIMA},
        {.report = mem_report::bins, .key = "bins"},
        {.report = mem_report::tags, .key = "tags"},
        {.report = mem_report::bins_in_mebibytes, .key = "bins_mb"},
        {.report = mem_report::tags_in_mebibytes, .key = "tags_mb"}};
    for (const TableKind& one : KINDS) {
        if (one.report.kind == kind) return &one;
    }
    return nullptr;
}

const char* timeline_title(std::string_view kind) {
    using namespace mem_report;
    for (const MEM_REPORT* one : {&module_timeline, &module_timeline_detailed, &blocks_timeline,
                                  &blocks_timeline_detailed, &tag_timeline, &process}) {
        if (one->kind == kind) return one->title;
    }
    return nullptr;
}

}  // namespace memview
