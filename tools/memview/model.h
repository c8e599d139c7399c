#pragma once

// What a folder of reports says, ready to be shown: tables, series and the processes that they belong to.

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/memview/problems.h"

namespace memview {

// Each text once; tables hold its number. Number 0 is the empty text.
class Names {
  public:
    Names() { id_of({}); }
    std::uint32_t id_of(std::string_view text);
    const std::string& text(std::int64_t id) const { return m_texts[static_cast<std::size_t>(id)]; }

  private:
    std::deque<std::string> m_texts;  // does not move its elements, which the map's keys point into
    std::unordered_map<std::string_view, std::uint32_t> m_ids;
};

enum class Unit {
    text,     // a number of Names
    address,  // 0 is the OTHER record
    line,
    bytes,
    blocks,
    thousandths  // of a MiB
};

struct ColumnSpec {
    const char* key;    // stable name, as in exports and in --sort
    const char* title;  // as in the report
    Unit unit;
};

struct Column {
    ColumnSpec spec;
    std::vector<std::int64_t> cells;
};

// Held by columns, so that a hundred thousand call sites stay small.
struct Table {
    std::string key;  // "sites", "modules", "bins", "tags", "leaks", "filtered", "fast_leaks"
    std::string file;
    std::vector<Column> columns;
    std::size_t rows = 0;

    // -1 when there is no such column.
    int column(std::string_view column_key) const;
    // Null when there is no such column.
    const std::vector<std::int64_t>* cells(std::string_view column_key) const;
    std::int64_t sum(std::string_view column_key) const;
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
    std::vector<Series> series;
};

struct Run {
    std::string name;  // the middle word of the file names
    std::string folder;
    std::optional<std::uint64_t> peak_index;   // sampling index of the recorded peak
    std::map<std::string, std::string> files;  // kind of report -> path
    std::vector<Table> tables;
    std::map<std::string, Timeline> timelines;  // by kind of report

    const Table* table(std::string_view key) const;
    const Timeline* timeline(const std::string& kind) const;
};

struct Folder {
    Names names;
    std::vector<Run> runs;
    std::vector<std::string> left_out;  // what --keep-going went past, one line each
};

}  // namespace memview
