#pragma once

// What a folder of reports says, ready to be shown: tables, series and the processes that they belong to.

#include <array>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "mem/columns/report_columns.h"
#include "tools/reports/problems.h"

namespace memview {

// Each text once; tables hold its number. Number 0 is the empty text.
class Names {
  public:
    Names();
    std::uint32_t id_of(std::string_view text);
    // Lives as long as this.
    std::string_view text(std::int64_t id) const { return texts_[static_cast<std::size_t>(id)]; }
    std::size_t size() const { return texts_.size(); }

  private:
    // Hash and number together, so that a look-up seldom touches a text that is not the wanted one.
    struct Slot {
        std::uint32_t hash;
        std::uint32_t id;  // FREE when nothing is here
    };

    std::string_view keep(std::string_view text);
    void grow();

    std::vector<std::string_view> texts_;
    std::vector<Slot> slots_;  // open addressing; a power of two, at most half of it taken
    std::vector<std::unique_ptr<char[]>> blocks_;
    std::size_t left_ = 0;  // of the last block
};

// Whole numbers, of 4 bytes each until one does not fit and of 8 bytes from then on.
class Cells {
  public:
    void reserve(std::size_t count) { wide_.empty() ? narrow_.reserve(count) : wide_.reserve(count); }
    void push_back(std::int64_t value) {
        const auto narrow = static_cast<std::int32_t>(value);
        if (wide_.empty() && narrow == value) {
            narrow_.push_back(narrow);
        } else {
            push_wide(value);
        }
    }
    std::int64_t operator[](std::size_t row) const { return wide_.empty() ? narrow_[row] : wide_[row]; }
    std::int64_t sum() const;

  private:
    void push_wide(std::int64_t value);

    std::vector<std::int32_t> narrow_;
    std::vector<std::int64_t> wide_;
};

using Unit = MEM_COLUMN_UNIT;  // a text is a number of Names, a MiB a thousand, address 0 the OTHER record
inline constexpr std::int64_t no_site = -1;

using ColumnSpec = MEM_COLUMN;

struct Column {
    ColumnSpec spec;
    Cells cells;
};

// Held by columns, so that millions of call sites stay small.
struct Table {
    std::string key;  // "sites", "modules", "bins", "tags", "leaks", "filtered", "fast_leaks"
    std::string file;
    std::vector<Column> columns;
    std::size_t rows = 0;

    // A cell for each column.
    void add_row(std::span<const std::int64_t> row);
    void add_row(std::initializer_list<std::int64_t> row) { add_row(std::span(row.begin(), row.size())); }

    // -1 when there is no such column.
    int column(std::string_view column_key) const;
    // Null when there is no such column.
    const Cells* cells(std::string_view column_key) const;
    std::int64_t sum(std::string_view column_key) const;
    // The text in a column of names.
    std::string_view text(std::string_view column_key, std::size_t row, const Names& names) const {
        return names.text((*cells(column_key))[row]);
    }
};

Table empty_table(std::string key, std::string file, std::span<const ColumnSpec> columns);

// Who called the lines that allocate. Frame n has the rows from first_level[n] up to first_level[n + 1]: the
// place that the address belongs to, and the functions that it was inlined into, outwards. Frame 0 has none;
// it stands for what lay deeper than the tracker looks. Node n is row n - 1, and its parent comes before it;
// parent 0 is the root.
struct Paths {
    std::map<std::string, std::int64_t> totals;  // by title, as in the head of the report
    Table frames;                                // "frame", "level", "address", "filtered", and the place
    Table nodes;  // "node", "parent", "frame", "site", and a node's own figures
    std::vector<std::uint32_t> first_level;
};

// A run-length of samples in the form of one value for each of some equal stretches, which fits any number of
// them.
struct Series {
    std::string name;
    std::int64_t highest = 0;
    std::int64_t last = 0;
    std::vector<std::int64_t> stretches;  // the highest value in each
};

struct Timeline {
    std::string file;
    std::uint64_t samples = 0;
    std::int64_t highest_sum = 0;  // of all series in one sample
    std::vector<Series> series;
};

// When the samples of a run were taken.
struct SampleClock {
    std::int64_t start = 0;    // of the process, in milliseconds since 1970
    std::int64_t process = 0;  // its number, and its parent's
    std::int64_t parent = 0;
    std::vector<std::int64_t> milliseconds;  // since the start, by sample

    // The times of these rows of a timeline of so many samples; none when they are not known. A timeline that
    // was begun anew lacks the first samples.
    std::vector<std::int64_t> times_of(const std::vector<std::uint64_t>& rows, std::uint64_t samples) const;
};

// The parts of the resident memory, in the order of the report.
enum ResidentIndex : std::size_t {
    RESIDENT,
    BLOCKS,
    ROUNDING,
    UNKNOWN_BLOCKS,
    TRACKER_BLOCKS,
    KEPT_BY_THREADS,
    KEPT_IN_BETWEEN,
    KEPT_FREE,
    ALLOCATOR_TABLES,
    NEVER_TOUCHED,
    TRACKER_MAPPINGS,
    STACKS,
    CODE,
    MODULE_DATA,
    FILES,
    SHARED_MEMORY,
    ANONYMOUS,
    UNEXPLAINED,
    GIVEN_BACK
};
inline constexpr std::size_t resident_part_count = GIVEN_BACK + 1;
static_assert(resident_part_count == std::size(mem_column::of_resident) - mem_column::columns_before_parts);

struct ResidentPoint {
    std::int64_t milliseconds = 0;  // since the start of the process
    std::uint64_t event = 0;
    bool is_full = false;  // all parts are known; else those that need the mappings are 0
    std::array<std::int64_t, resident_part_count> parts{};
};

struct Resident {
    std::optional<std::int64_t> cgroup_limit;         // bytes
    std::optional<std::int64_t> address_space_limit;  // bytes
    std::vector<ResidentPoint> points;
};

struct Run {
    std::string name;  // the middle word of the file names
    std::string folder;
    std::optional<std::uint64_t> peak_index;   // sampling index of the recorded peak
    std::map<std::string, std::string> files;  // kind of report -> path
    std::vector<Table> tables;
    std::map<std::string, Timeline> timelines;  // by kind of report
    std::optional<Paths> paths;

    std::optional<SampleClock> clock;
    std::optional<Resident> resident;

    const Table* table(std::string_view key) const;
    const Timeline* timeline(const std::string& kind) const;
};

struct Folder {
    std::shared_ptr<Names> names;  // folders that are compared share theirs
    std::vector<Run> runs;
    std::vector<std::string> left_out;  // what --keep-going went past, one line each
};

}  // namespace memview
