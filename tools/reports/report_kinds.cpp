#include "tools/reports/report_kinds.h"

namespace memview {

const TableKind* table_kind(std::string_view kind) {
    constexpr int maxima = 2;
    static constexpr TableKind kinds[] = {
        {.report = mem_report::call_sites, .key = "sites", .indexed = true, .closing_line = true},
        {.report = mem_report::modules, .key = "modules", .closing_line = true, .optional_column = maxima},
        {.report = mem_report::bins, .key = "bins"},
        {.report = mem_report::tags, .key = "tags"},
        {.report = mem_report::bins_in_mebibytes, .key = "bins_mb"},
        {.report = mem_report::tags_in_mebibytes, .key = "tags_mb"}};
    for (const TableKind& one : kinds) {
        if (one.report.kind == kind) return &one;
    }
    return nullptr;
}

const char* timeline_title(std::string_view kind) {
    for (const MEM_REPORT* one :
         {&mem_report::module_timeline, &mem_report::module_timeline_detailed, &mem_report::blocks_timeline,
          &mem_report::blocks_timeline_detailed, &mem_report::tag_timeline, &mem_report::process}) {
        if (one->kind == kind) return one->title;
    }
    return nullptr;
}

}  // namespace memview
