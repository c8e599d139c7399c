#include "tools/reports/series_reader.h"

#include <algorithm>
#include <numeric>

#include "tools/reports/fields.h"
#include "tools/reports/line_reader.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/report_parts.h"
#include "tools/reports/table_rows.h"

namespace memview {
namespace {

constexpr std::size_t MOST_STRETCHES = 128;

class SeriesScan {
  public:
    SeriesScan(const std::string& path, std::string_view kind, Problems& problems,
               const SeriesVisitor& visitor)
        : m_reader(path),
          m_kind(kind),
          m_auxiliary(kind == AUXILIARY_TIMELINE),
          m_problems(problems),
          m_visitor(visitor) {}

    void run() {
        const std::string rest = read_head(m_reader, timeline_title(m_kind));
        if (!rest.empty())
            throw ReportError({m_reader.path(), 1, "unexpected title, ends in " + in_quotes(rest)});
        read_names();
        const RowReader rows{[this](std::string_view line) { return read_row(line); },
                             [this](std::string_view line) { return fault_of(line); }};
        read_rows(m_reader, rows, true, m_problems);
    }

  private:
    void read_names() {
        const std::string_view line = read_column_line(m_reader);
        if (m_auxiliary) hold_against(m_reader, line, mem_report::process.columns);
        std::vector<std::string> names;
        Fields fields(line);
        std::string_view name;
        if (!m_auxiliary && fields.next(name) && !name.empty()) {
            throw ReportError(
                {m_reader.path(), m_reader.number(), "column names expected, found " + in_quotes(line)});
        }
        while (fields.next(name)) names.emplace_back(name);
        m_values.resize(names.size());
        m_visitor.header(names);
    }

    bool next_value(Fields& fields, std::int64_t& value) const {
        if (!m_auxiliary) return fields.next_number(value);
        std::uint64_t bits = 0;
        const bool good = fields.next_number(bits);
        value = static_cast<std::int64_t>(bits);
        return good;
    }

    bool read_row(std::string_view line) {
        Fields fields(line);
        std::string_view label;
        if (!m_auxiliary) fields.next(label);
        for (std::int64_t& value : m_values) {
            if (!next_value(fields, value)) return false;
        }
        if (!fields.at_end() || !m_reader.terminated()) return false;
        m_visitor.row(label, m_values);
        return true;
    }

    // What is wrong with a row that could not be read.
    std::string fault_of(std::string_view line) const {
        Fields fields(line);
        std::string_view field;
        const std::size_t labels = m_auxiliary ? 0 : 1;
        if (!m_auxiliary) fields.next(field);
        for (std::size_t i = 0; i < m_values.size() && fields.next(field); ++i) {
            Fields alone(field);
            std::int64_t value = 0;
            if (next_value(alone, value)) continue;
            if (!m_reader.terminated()) return "the file is cut inside this row";
            return in_quotes(field) + " is no number (series " + std::to_string(i + 1) + ")";
        }
        const std::size_t found = Fields(line).rest();
        if (found == m_values.size() + labels) return "the file is cut inside this row";
        return wrong_field_count(m_reader, line, found, m_values.size() + labels);
    }

    LineReader m_reader;
    std::string_view m_kind;
    bool m_auxiliary;
    Problems& m_problems;
    const SeriesVisitor& m_visitor;
    std::vector<std::int64_t> m_values;
};

// The highest value of each series in each of at most MOST_STRETCHES equally long stretches of samples. When
// they are full, neighbours are joined and the stretches become twice as long.
class Stretches {
  public:
    explicit Stretches(std::size_t series) : m_series(series) {}

    void add(std::span<const std::int64_t> values) {
        if (m_in_last == m_length || m_cells.empty()) open();
        ++m_in_last;
        std::int64_t* cells = m_cells.data() + (m_cells.size() - m_series);
        for (std::size_t i = 0; i < m_series; ++i) cells[i] = std::max(cells[i], values[i]);
    }

    std::vector<std::int64_t> of(std::size_t series) const {
        std::vector<std::int64_t> course;
        for (std::size_t at = series; at < m_cells.size(); at += m_series) course.push_back(m_cells[at]);
        return course;
    }

  private:
    void open() {
        if (m_series != 0 && m_cells.size() / m_series == MOST_STRETCHES) join();
        m_cells.resize(m_cells.size() + m_series, INT64_MIN);
        m_in_last = 0;
    }

    void join() {
        for (std::size_t pair = 0; pair < MOST_STRETCHES / 2; ++pair) {
            for (std::size_t i = 0; i < m_series; ++i) {
                m_cells[pair * m_series + i] =
                    std::max(m_cells[2 * pair * m_series + i], m_cells[(2 * pair + 1) * m_series + i]);
            }
        }
        m_cells.resize(MOST_STRETCHES / 2 * m_series);
        m_length *= 2;
    }

    std::size_t m_series;
    std::size_t m_length = 1;
    std::size_t m_in_last = 0;
    std::vector<std::int64_t> m_cells;
};

}  // namespace

void scan_series(const std::string& path, std::string_view kind, Problems& problems,
                 const SeriesVisitor& visitor) {
    SeriesScan(path, kind, problems, visitor).run();
}

Timeline read_timeline(const std::string& path, std::string_view kind, Problems& problems) {
    Timeline timeline;
    timeline.file = path;
    Stretches stretches(0);
    std::vector<std::int64_t> last;
    SeriesVisitor visitor;
    visitor.header = [&](const std::vector<std::string>& names) {
        for (const std::string& name : names) timeline.series.push_back({name, 0, 0, {}});
        stretches = Stretches(names.size());
    };
    visitor.row = [&](std::string_view, std::span<const std::int64_t> values) {
        const std::int64_t sum = std::accumulate(values.begin(), values.end(), std::int64_t{0});
        timeline.highest_sum = timeline.samples == 0 ? sum : std::max(timeline.highest_sum, sum);
        ++timeline.samples;
        stretches.add(values);
        last.assign(values.begin(), values.end());
    };
    scan_series(path, kind, problems, visitor);
    for (std::size_t i = 0; i < last.size(); ++i) {
        Series& series = timeline.series[i];
        series.last = last[i];
        series.stretches = stretches.of(i);
        series.highest = *std::max_element(series.stretches.begin(), series.stretches.end());
    }
    return timeline;
}

}  // namespace memview
