#include "tools/reports/path_reader.h"

#include "tools/reports/fields.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/report_parts.h"
#include "tools/reports/table_rows.h"

namespace memview {
namespace {

constexpr const char* TITLE = mem_report::call_paths.title;
constexpr std::int64_t VERSION = 1;
constexpr std::uint16_t DEEPEST = 4096;  // far more than the tracker keeps of a stack

class PathReader {
  public:
    PathReader(const std::string& path, Names& names) : m_reader(path), m_names(names) {}

    Paths read() {
        const std::string rest = read_head(m_reader, TITLE);
        if (!rest.empty())
            throw ReportError({m_reader.path(), 1, "unexpected title " + in_quotes(TITLE + rest)});
        read_totals();
        m_paths.first_level = {0};
        m_paths.frames =
            read_section("frames", mem_column::of_frames, [this](auto row) { return fault_of_frame(row); });
        m_paths.first_level.push_back(static_cast<std::uint32_t>(m_paths.frames.rows));
        m_frame_count = static_cast<std::int64_t>(m_paths.first_level.size()) - 2;
        m_paths.nodes = read_section("nodes", mem_report::call_paths.columns,
                                     [this](auto row) { return fault_of_node(row); });
        hold_against_head();
        Problems strict(false);
        const auto no_row = [](std::string_view) { return false; };
        read_rows(
            m_reader,
            {no_row,
             [](std::string_view line) { return "the closing line expected, found " + in_quotes(line); }},
            true, strict);
        return std::move(m_paths);
    }

  private:
    using Row = std::span<const std::int64_t>;

    [[noreturn]] void refuse(const std::string& reason) const {
        throw ReportError({m_reader.path(), m_reader.number(), reason});
    }

    // The next line of a part; false at the empty line that ends it.
    bool next_of_part(std::string_view& line) {
        if (!m_reader.next(line)) refuse("the file is cut: its closing line is missing");
        if (!m_reader.terminated()) refuse("the file is cut inside this row");
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
            m_paths.totals[std::string(key)] = value;
        }
        const auto version = m_paths.totals.find("Version");
        if (version == m_paths.totals.end()) refuse("the head has no version");
        if (version->second != VERSION)
            refuse("version " + std::to_string(version->second) + " of the report is not known here, only " +
                   std::to_string(VERSION));
    }

    template <class FAULT>
    Table read_section(const char* key, std::span<const ColumnSpec> columns, const FAULT& fault_of) {
        read_columns(m_reader, columns, -1);
        Table table = empty_table(key, m_reader.path(), columns);
        RowParser parser(m_reader, columns, m_names);
        for (std::string_view line; next_of_part(line);) {
            if (!parser.parse(line)) refuse(parser.fault_of(line));
            const char* fault = fault_of(parser.row());
            if (fault != nullptr) refuse(fault);
            add_row(m_reader, parser.row(), table);
        }
        return table;
    }

    // Null when the row stands where it should.
    const char* fault_of_frame(Row row) {
        const std::int64_t frame = row[0];
        const std::int64_t level = row[1];
        const auto last = static_cast<std::int64_t>(m_paths.first_level.size()) - 1;
        if (level == 0) {
            if (frame != last + 1) return "frames are not numbered in their order";
            m_paths.first_level.push_back(m_levels++);
            m_level = 0;
            return nullptr;
        }
        if (frame != last || last == 0 || level != m_level + 1)
            return "levels of a frame are not numbered in their order";
        ++m_level;
        ++m_levels;
        return nullptr;
    }

    const char* fault_of_node(Row row) {
        const std::int64_t node = row[0];
        if (node != ++m_nodes) return "nodes are not numbered in their order";
        if (row[1] >= node) return "the parent of a node does not come before it";
        if (row[2] > m_frame_count) return "the frame of a node is not listed";
        m_depths.push_back(m_depths[static_cast<std::size_t>(row[1])] + 1);
        if (m_depths.back() > DEEPEST) return "the path to this node has more frames than any path";
        return nullptr;
    }

    void hold_against_head() {
        const auto in_head = m_paths.totals.find("Nodes");
        if (in_head != m_paths.totals.end() && in_head->second != m_nodes)
            refuse("the head says " + std::to_string(in_head->second) + " nodes, found " +
                   std::to_string(m_nodes));
    }

    LineReader m_reader;
    Names& m_names;
    Paths m_paths;
    std::uint32_t m_levels = 0;
    std::int64_t m_level = 0;
    std::int64_t m_frame_count = 0;
    std::int64_t m_nodes = 0;
    std::vector<std::uint16_t> m_depths = {0};  // by node
};

}  // namespace

Paths read_paths(const std::string& path, Names& names) {
    return PathReader(path, names).read();
}

}  // namespace memview
