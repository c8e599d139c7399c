#include "tools/reports/path_reader.h"

#include "tools/reports/fields.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/report_parts.h"
#include "tools/reports/table_rows.h"

namespace memview {
namespace {

constexpr const char* report_title = mem_report::call_paths.title;
constexpr std::int64_t known_version = 1;
constexpr std::uint16_t deepest = 4096;  // far more than the tracker keeps of a stack

class PathReader {
  public:
    PathReader(const std::string& path, Names& names) : reader_(path), names_(names) {}

    Paths read() {
        const std::string rest = read_head(reader_, report_title);
        if (!rest.empty())
            throw ReportError({reader_.path(), 1, "unexpected title " + in_quotes(report_title + rest)});
        read_totals();
        paths_.first_level = {0};
        paths_.frames =
            read_section("frames", mem_column::of_frames, [this](auto row) { return fault_of_frame(row); });
        paths_.first_level.push_back(static_cast<std::uint32_t>(paths_.frames.rows));
        frame_count_ = static_cast<std::int64_t>(paths_.first_level.size()) - 2;
        paths_.nodes = read_section("nodes", mem_report::call_paths.columns,
                                    [this](auto row) { return fault_of_node(row); });
        hold_against_head();
        Problems strict(false);
        const auto no_row = [](std::string_view) { return false; };
        read_rows(
            reader_,
            {no_row,
             [](std::string_view line) { return "the closing line expected, found " + in_quotes(line); }},
            true, strict);
        return std::move(paths_);
    }

  private:
    using Row = std::span<const std::int64_t>;

    [[noreturn]] void refuse(const std::string& reason) const {
        throw ReportError({reader_.path(), reader_.number(), reason});
    }

    // The next line of a part; false at the empty line that ends it.
    bool next_of_part(std::string_view& line) {
        if (!reader_.next(line)) refuse("the file is cut: its closing line is missing");
        if (!reader_.terminated()) refuse("the file is cut inside this row");
        return !line.empty();
    }

    void read_totals() {
        std::string_view line;
        if (!next_of_part(line) || line != "Key\tValue") refuse("columns \"Key\" and \"Value\" expected");
        while (next_of_part(line)) {
            Fields fields(line);
            std::string_view key;
            std::int64_t value = 0;
            if (!fields.next(key) || !fields.next_number(value) || !fields.at_end())
                refuse("no key with a number: " + in_quotes(line));
            paths_.totals[std::string(key)] = value;
        }
        const auto version = paths_.totals.find("Version");
        if (version == paths_.totals.end()) refuse("the head has no version");
        if (version->second != known_version)
            refuse("version " + std::to_string(version->second) + " of the report is not known here, only " +
                   std::to_string(known_version));
    }

    template <class Fault>
    Table read_section(const char* key, std::span<const ColumnSpec> columns, const Fault& fault_of) {
        read_columns(reader_, columns, -1);
        Table table = empty_table(key, reader_.path(), columns);
        RowParser parser(reader_, columns, names_);
        for (std::string_view line; next_of_part(line);) {
            if (!parser.parse(line)) refuse(parser.fault_of(line));
            const char* fault = fault_of(parser.row());
            if (fault != nullptr) refuse(fault);
            add_row(reader_, parser.row(), table);
        }
        return table;
    }

    // Null when the row stands where it should.
    const char* fault_of_frame(Row row) {
        const std::int64_t frame = row[0];
        const std::int64_t level = row[1];
        const auto last = static_cast<std::int64_t>(paths_.first_level.size()) - 1;
        if (level == 0) {
            if (frame != last + 1) return "frames are not numbered in their order";
            paths_.first_level.push_back(levels_++);
            level_ = 0;
            return nullptr;
        }
        if (frame != last || last == 0 || level != level_ + 1)
            return "levels of a frame are not numbered in their order";
        ++level_;
        ++levels_;
        return nullptr;
    }

    const char* fault_of_node(Row row) {
        const std::int64_t node = row[0];
        if (node != ++nodes_) return "nodes are not numbered in their order";
        if (row[1] >= node) return "the parent of a node does not come before it";
        if (row[2] > frame_count_) return "the frame of a node is not listed";
        depths_.push_back(depths_[static_cast<std::size_t>(row[1])] + 1);
        if (depths_.back() > deepest) return "the path to this node has more frames than any path";
        return nullptr;
    }

    void hold_against_head() {
        const auto in_head = paths_.totals.find("Nodes");
        if (in_head != paths_.totals.end() && in_head->second != nodes_)
            refuse("the head says " + std::to_string(in_head->second) + " nodes, found " +
                   std::to_string(nodes_));
    }

    LineReader reader_;
    Names& names_;
    Paths paths_;
    std::uint32_t levels_ = 0;
    std::int64_t level_ = 0;
    std::int64_t frame_count_ = 0;
    std::int64_t nodes_ = 0;
    std::vector<std::uint16_t> depths_ = {0};  // by node
};

}  // namespace

Paths read_paths(const std::string& path, Names& names) {
    return PathReader(path, names).read();
}

}  // namespace memview
