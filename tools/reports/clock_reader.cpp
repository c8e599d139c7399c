#include "tools/reports/clock_reader.h"

#include "tools/reports/fields.h"
#include "tools/reports/line_reader.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/report_parts.h"
#include "tools/reports/table_rows.h"

namespace memview {
namespace {

// "1.500" as 1500.
bool parse_milliseconds(std::string_view text, std::int64_t& value) {
    const std::size_t point = text.find('.');
    std::uint32_t part = 0;
    if (point == std::string_view::npos || text.size() - point != 4) return false;
    if (!parse_number(text.substr(0, point), value) || !parse_number(text.substr(point + 1), part))
        return false;
    value = value * 1000 + part;
    return true;
}

// The lines "KEY<tab>VALUE" up to the empty one.
void read_keys(LineReader& reader, SampleClock& clock) {
    std::string_view line;
    while (reader.next(line) && !line.empty()) {
        Fields fields(line);
        std::string_view key;
        std::string_view value;
        const bool is_pair = fields.next(key) && fields.next(value) && fields.at_end();
        bool good = is_pair;
        if (key == "Start") good = is_pair && parse_milliseconds(value, clock.start);
        if (key == "Process") good = is_pair && parse_number(value, clock.process);
        if (key == "Parent") good = is_pair && parse_number(value, clock.parent);
        if (!good)
            throw ReportError(
                {reader.path(), reader.number(), in_quotes(line) + " is no line of this report's head"});
    }
}

}  // namespace

SampleClock read_clock(const std::string& path, Problems& problems) {
    LineReader reader(path);
    SampleClock clock;
    read_head(reader, mem_report::clock.title);
    read_keys(reader, clock);
    expect_columns(reader, mem_report::clock.columns);
    const auto read_row = [&](std::string_view line) {
        Fields fields(line);
        std::uint64_t sample = 0;
        std::int64_t milliseconds = 0;
        std::uint64_t event = 0;
        const bool good = fields.next_number(sample) && fields.next_number(milliseconds) &&
                          fields.next_number(event) && fields.at_end() && reader.terminated();
        if (good && sample == clock.milliseconds.size()) clock.milliseconds.push_back(milliseconds);
        return good && sample + 1 == clock.milliseconds.size();
    };
    const RowReader rows{read_row, [&](std::string_view line) {
                             return reader.terminated() ? in_quotes(line) + " is not the row of sample " +
                                                              std::to_string(clock.milliseconds.size())
                                                        : std::string("the file is cut inside this row");
                         }};
    read_rows(reader, rows, true, problems);
    return clock;
}

}  // namespace memview
