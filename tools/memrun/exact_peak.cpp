#include "tools/memrun/exact_peak.h"

#include <fstream>

#include "tools/common/closing_line.h"
#include "tools/memrun/report_row.h"

namespace memrun {

namespace {

constexpr std::string_view title = "MEM: Call Paths.";
constexpr std::string_view time_key = "Peak milliseconds";
constexpr std::string_view node_title = "Node";

// Columns of the nodes, which are the only rows of so many.
enum Column : std::size_t {
    column_site = 3,
    column_peak_bytes = 7,
    column_peak_blocks = 8,
    column_count = 13
};

void add_node(const Fields& row, ExactPeak& peak) {
    const Held own = {number(row[column_peak_bytes]), number(row[column_peak_blocks])};
    if (own.bytes == 0 && own.blocks == 0) return;
    Held& site = peak.by_site[std::string(row[column_site])];
    for (Held* sum : {&site, &peak.all}) {
        sum->bytes += own.bytes;
        sum->blocks += own.blocks;
    }
}

}  // namespace

std::optional<ExactPeak> read_exact_peak(const std::filesystem::path& report) {
    std::ifstream file(report);
    std::string line;
    if (!std::getline(file, line) || line != title) return std::nullopt;
    ExactPeak peak;
    bool among_nodes = false;
    while (std::getline(file, line)) {
        if (is_closing_line(line)) return peak;
        const Fields row = split(line);
        if (row.size() == 2 && row[0] == time_key) peak.milliseconds = number(row[1]);
        if (among_nodes && row.size() == column_count) add_node(row, peak);
        among_nodes = among_nodes || row[0] == node_title;
    }
    return std::nullopt;
}

}  // namespace memrun
