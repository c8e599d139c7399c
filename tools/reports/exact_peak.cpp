#include "tools/reports/exact_peak.h"

#include <unordered_map>

#include "tools/reports/report_kinds.h"

namespace memview {
namespace {

struct Held {
    std::int64_t bytes = 0;
    std::int64_t blocks = 0;

    void add(const Held& other) {
        bytes += other.bytes;
        blocks += other.blocks;
    }
};

using HeldBy = std::unordered_map<std::int64_t, Held>;

HeldBy held_by_sites(const Table& nodes) {
    HeldBy held;
    const Cells& site = *nodes.cells("site");
    const Cells& bytes = *nodes.cells("peak");
    const Cells& blocks = *nodes.cells("peak_blocks");
    for (std::size_t row = 0; row < nodes.rows; ++row) {
        if (bytes[row] != 0 || blocks[row] != 0) held[site[row]].add({bytes[row], blocks[row]});
    }
    return held;
}

// A key that two rows bear counts for the first of them.
void add_columns(Table& table, const char* key_column, HeldBy held) {
    const std::size_t key_index = static_cast<std::size_t>(table.column(key_column));
    Column bytes{exact_columns[0], {}};
    Column blocks{exact_columns[1], {}};
    for (std::size_t row = 0; row < table.rows; ++row) {
        Held& share = held[table.columns[key_index].cells[row]];
        bytes.cells.push_back(share.bytes);
        blocks.cells.push_back(share.blocks);
        share = {};
    }
    table.columns.push_back(std::move(bytes));
    table.columns.push_back(std::move(blocks));
}

Table* table_of(Run& run, std::string_view key) {
    for (Table& table : run.tables) {
        if (table.key == key) return &table;
    }
    return nullptr;
}

}  // namespace

void add_exact_peaks(Run& run, Names& names) {
    Table* sites = table_of(run, "sites");
    if (!run.paths || sites == nullptr) return;
    add_columns(*sites, "address", held_by_sites(run.paths->nodes));
    Table* modules = table_of(run, "modules");
    if (modules == nullptr) return;
    const std::int64_t other = names.id_of("OTHER");
    const Cells& module = *sites->cells("module");
    const Cells& bytes = *sites->cells(exact_peak);
    const Cells& blocks = *sites->cells(exact_peak_blocks);
    HeldBy held;
    for (std::size_t row = 0; row < sites->rows; ++row) {
        held[module[row] == 0 ? other : module[row]].add({bytes[row], blocks[row]});
    }
    add_columns(*modules, "name", std::move(held));
}

std::string meant_column(const Table& table, const std::string& key) {
    const std::string exact = key == "peak" ? exact_peak : key == "peak_blocks" ? exact_peak_blocks : key;
    return table.column(exact) >= 0 ? exact : key;
}

}  // namespace memview
