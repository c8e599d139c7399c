#include "mem/report/timeline_report.h"

#include <algorithm>
#include <span>

#include "mem/report/report_line.h"
#include "mem/report/report_trailer.h"

namespace {

constexpr std::size_t named_columns_limit = 18;

class COLUMN_READER {
  public:
    explicit COLUMN_READER(const MEM_TIMELINE_COLUMN& column)
        : cursor(*column.series), column_name(column.name) {}
    std::string_view name() const { return column_name; }
    std::int64_t next() {
        const std::int64_t* value = cursor.next();
        return value != nullptr ? *value : 0;
    }

  private:
    MEM_RUN_CURSOR<std::int64_t> cursor;
    std::string_view column_name;
};

using COLUMN_READERS = std::vector<COLUMN_READER>;

COLUMN_READERS readers_of(const std::vector<MEM_TIMELINE_COLUMN>& columns) {
    return {columns.begin(), columns.end()};
}

// Stable, so that the same data give the same report.
COLUMN_READERS readers_by_highest(const std::vector<MEM_TIMELINE_COLUMN>& columns) {
    std::vector<std::pair<std::int64_t, MEM_TIMELINE_COLUMN>> ranked;
    ranked.reserve(columns.size());
    for (const MEM_TIMELINE_COLUMN& column : columns) ranked.emplace_back(column.series->highest(), column);
    std::ranges::stable_sort(ranked, {}, &std::pair<std::int64_t, MEM_TIMELINE_COLUMN>::first);
    COLUMN_READERS readers;
    readers.reserve(ranked.size());
    for (const auto& [highest, column] : ranked) readers.emplace_back(column);
    return readers;
}

// One form of the report: a stream and the columns that it names.
class FORM {
  public:
    FORM(std::ostream& stream, std::span<COLUMN_READER> summed_up, std::span<COLUMN_READER> with_names,
         bool has_misc)
        : out(stream), misc(summed_up), named(with_names), misc_shown(has_misc) {}

    void write_header(std::string_view title) {
        line.text(title);
        line.end_row(out);
        line.end_row(out);
        if (misc_shown) line.text("\tMisc");
        for (const COLUMN_READER& column : named) line.text("\t").text(column.name());
        line.end_row(out);
    }

    void write_row(std::string_view label) {
        line.text(label);
        if (misc_shown) line.text("\t").number(sum_of_misc());
        for (COLUMN_READER& column : named) line.text("\t").number(column.next());
        line.end_row(out);
    }

    void write_trailer(std::string_view trailer) { line.text(trailer).end_row(out); }

  private:
    std::int64_t sum_of_misc() {
        std::int64_t sum = 0;
        for (COLUMN_READER& column : misc) sum += column.next();
        return sum;
    }

    std::ostream& out;
    std::span<COLUMN_READER> misc;
    std::span<COLUMN_READER> named;
    bool misc_shown;
    MEM_REPORT_LINE line;
};

}  // namespace

bool dump_timeline(std::ostream& plain, std::ostream& detailed,
                   const std::vector<MEM_TIMELINE_COLUMN>& columns, std::uint64_t num_samples,
                   MEM_ROW_LABELS& labels) {
    const MEM_REPORT_CLOCK clock;
    if (plain.fail() || detailed.fail()) return false;
    COLUMN_READERS ranked = readers_by_highest(columns);
    COLUMN_READERS all = readers_of(columns);
    const std::size_t summed_up = ranked.size() - std::min(ranked.size(), named_columns_limit);
    const std::span<COLUMN_READER> by_rank(ranked);
    FORM plain_form(plain, by_rank.first(summed_up), by_rank.subspan(summed_up), true);
    FORM detailed_form(detailed, {}, all, false);

    plain_form.write_header(mem_report::plain_timeline_title);
    detailed_form.write_header(mem_report::detailed_timeline_title);
    for (std::uint64_t sample = 0; sample < num_samples; ++sample) {
        std::string_view label = labels.next();
        if (label.empty()) label = "Other";
        plain_form.write_row(label);
        detailed_form.write_row(label);
        labels.row_ended();
    }
    const std::string trailer = clock.trailer();
    plain_form.write_trailer(trailer);
    detailed_form.write_trailer(trailer);
    return true;
}
