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

constexpr std::size_t most_stretches = 128;

class SeriesScan {
  public:
    SeriesScan(const std::string& path, std::string_view kind, Problems& problems,
               const SeriesVisitor& visitor)
        : reader_(path),
          kind_(kind),
          auxiliary_(kind == auxiliary_timeline),
          problems_(problems),
          visitor_(visitor) {}

    void run() {
        const std::string rest = read_head(reader_, timeline_title(kind_));
        if (!rest.empty())
            throw ReportError({reader_.path(), 1, "unexpected title, ends in " + in_quotes(rest)});
        read_names();
        const RowReader rows{[this](std::string_view line) { return read_row(line); },
                             [this](std::string_view line) { return fault_of(line); }};
        read_rows(reader_, rows, true, problems_);
    }

  private:
    void read_names() {
        const std::string_view line = read_column_line(reader_);
        if (auxiliary_) hold_against(reader_, line, mem_report::process.columns);
        std::vector<std::string> names;
        Fields fields(line);
        std::string_view name;
        if (!auxiliary_ && fields.next(name) && !name.empty()) {
            throw ReportError(
                {reader_.path(), reader_.number(), "column names expected, found " + in_quotes(line)});
        }
        while (fields.next(name)) names.emplace_back(name);
        values_.resize(names.size());
        visitor_.header(names);
    }

    bool next_value(Fields& fields, std::int64_t& value) const {
        if (!auxiliary_) return fields.next_number(value);
        std::uint64_t bits = 0;
        const bool good = fields.next_number(bits);
        value = static_cast<std::int64_t>(bits);
        return good;
    }

    bool read_row(std::string_view line) {
        Fields fields(line);
        std::string_view label;
        if (!auxiliary_) fields.next(label);
        for (std::int64_t& value : values_) {
            if (!next_value(fields, value)) return false;
        }
        if (!fields.at_end() || !reader_.terminated()) return false;
        visitor_.row(label, values_);
        return true;
    }

    // What is wrong with a row that could not be read.
    std::string fault_of(std::string_view line) const {
        Fields fields(line);
        std::string_view field;
        const std::size_t labels = auxiliary_ ? 0 : 1;
        if (!auxiliary_) fields.next(field);
        for (std::size_t i = 0; i < values_.size() && fields.next(field); ++i) {
            Fields alone(field);
            std::int64_t value = 0;
            if (next_value(alone, value)) continue;
            if (!reader_.terminated()) return "the file is cut inside this row";
            return in_quotes(field) + " is no number (series " + std::to_string(i + 1) + ")";
        }
        const std::size_t found = Fields(line).rest();
        if (found == values_.size() + labels) return "the file is cut inside this row";
        return wrong_field_count(reader_, line, found, values_.size() + labels);
    }

    LineReader reader_;
    std::string_view kind_;
    bool auxiliary_;
    Problems& problems_;
    const SeriesVisitor& visitor_;
    std::vector<std::int64_t> values_;
};

// The highest value of each series in each of at most most_stretches equally long stretches of samples. When
// they are full, neighbours are joined and the stretches become twice as long.
class Stretches {
  public:
    explicit Stretches(std::size_t series) : series_(series) {}

    void add(std::span<const std::int64_t> values) {
        if (in_last_ == length_ || cells_.empty()) open();
        ++in_last_;
        std::int64_t* cells = cells_.data() + (cells_.size() - series_);
        for (std::size_t i = 0; i < series_; ++i) cells[i] = std::max(cells[i], values[i]);
    }

    std::vector<std::int64_t> of(std::size_t series) const {
        std::vector<std::int64_t> course;
        for (std::size_t at = series; at < cells_.size(); at += series_) course.push_back(cells_[at]);
        return course;
    }

  private:
    void open() {
        if (series_ != 0 && cells_.size() / series_ == most_stretches) join();
        cells_.resize(cells_.size() + series_, INT64_MIN);
        in_last_ = 0;
    }

    void join() {
        for (std::size_t pair = 0; pair < most_stretches / 2; ++pair) {
            for (std::size_t i = 0; i < series_; ++i) {
                cells_[pair * series_ + i] =
                    std::max(cells_[2 * pair * series_ + i], cells_[(2 * pair + 1) * series_ + i]);
            }
        }
        cells_.resize(most_stretches / 2 * series_);
        length_ *= 2;
    }

    std::size_t series_;
    std::size_t length_ = 1;
    std::size_t in_last_ = 0;
    std::vector<std::int64_t> cells_;
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
