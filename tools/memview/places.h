#pragma once

// The rows of two tables by what they are about, so that they can be held against each other.

#include <cstdint>
#include <string>
#include <tuple>
#include <unordered_map>

#include "tools/reports/model.h"

namespace memview {

// The numbers of the texts that a row bears, and its line. Rows of bins, tags and modules have only a name,
// which then stands in the place of the module.
struct Place {
    std::int64_t module = 0;
    std::int64_t file = 0;
    std::int64_t function = 0;
    std::int64_t line = 0;

    bool operator==(const Place&) const = default;
    bool operator<(const Place& other) const {
        return std::tie(module, file, function, line) <
               std::tie(other.module, other.file, other.function, other.line);
    }
};

struct PlaceHash {
    std::size_t operator()(const Place& place) const;
};

// What two tables say of one place; the figure is 0 in a table that does not have it.
struct Pair {
    std::int64_t before = 0;
    std::int64_t after = 0;
    bool is_before = false;  // whether the first table has it at all
    bool is_after = false;

    std::int64_t change() const { return after - before; }
};

enum class Side { before, after };
using PlaceSums = std::unordered_map<Place, Pair, PlaceHash>;

// Gives the places of a table's rows, one by one.
class PlaceReader {
  public:
    explicit PlaceReader(const Table& table);
    Place operator[](std::size_t row) const;

  private:
    const Cells& module_;
    const Cells* file_;
    const Cells* function_;
    const Cells* line_;
};

// Adds a column of the table to one side.
void add_sums(const Table& table, const std::string& column, Side side, PlaceSums& sums);

// "MODULE FILE:LINE FUNCTION"
std::string to_text(const Place& place, const Names& names);

}  // namespace memview
