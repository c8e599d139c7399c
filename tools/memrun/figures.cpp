#include "tools/memrun/figures.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <span>
#include <string_view>
#include <utility>

#include "mem/columns/report_columns.h"
#include "tools/common/closing_line.h"
#include "tools/memrun/output_folder.h"
#include "tools/reports/exact_peak.h"
#include "tools/reports/folder.h"
#include "tools/reports/leak_reader.h"
#include "tools/reports/path_reader.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/series_reader.h"
#include "tools/reports/table_reader.h"

namespace fs = std::filesystem;

namespace memrun {

namespace {

using memview::Cells;
using memview::Names;
using memview::Table;

// The rows of the call sites as the summary needs them.
class SiteRows {
  public:
    SiteRows(const Table& table, const Names& names)
        : names_(names),
          address_(cells(table, mem_column::of_call_sites[0])),
          line_(cells(table, mem_column::line_number)),
          module_(cells(table, mem_column::module)),
          file_(cells(table, mem_column::file)),
          function_(cells(table, mem_column::function)),
          peak_bytes_(*table.cells(memview::meant_column(table, mem_column::peak.key))),
          peak_blocks_(*table.cells(memview::meant_column(table, mem_column::peak_blocks.key))),
          cumulative_bytes_(cells(table, mem_column::cumulative)),
          cumulative_blocks_(cells(table, mem_column::cumulative_blocks)) {}

    bool is_other(std::size_t row) const { return address_[row] == 0; }
    bool has_line(std::size_t row) const { return line_[row] != 0; }
    std::string module(std::size_t row) const { return std::string(names_.text(module_[row])); }
    std::string function(std::size_t row) const { return std::string(names_.text(function_[row])); }
    std::string place(std::size_t row) const {
        if (!has_line(row)) return "module " + module(row);
        return std::string(names_.text(file_[row])) + ":" + std::to_string(line_[row]);
    }
    // At the exact peak where it is known.
    std::int64_t peak_bytes(std::size_t row) const { return peak_bytes_[row]; }
    std::int64_t peak_blocks(std::size_t row) const { return peak_blocks_[row]; }
    std::int64_t cumulative_bytes(std::size_t row) const { return cumulative_bytes_[row]; }
    std::int64_t cumulative_blocks(std::size_t row) const { return cumulative_blocks_[row]; }

  private:
    static const Cells& cells(const Table& table, const MEM_COLUMN& column) {
        return *table.cells(column.key);
    }

    const Names& names_;
    const Cells &address_, &line_, &module_, &file_, &function_;
    const Cells &peak_bytes_, &peak_blocks_, &cumulative_bytes_, &cumulative_blocks_;
};

// Call sites at one line are one to the reader, whatever their addresses.
class Sites {
  public:
    void add(const SiteRows& rows, std::size_t row) {
        Sums& sums = rows.is_other(row) ? unattributed_ : sums_[{rows.place(row), rows.function(row)}];
        sums.peak_bytes += rows.peak_bytes(row);
        sums.peak_blocks += rows.peak_blocks(row);
        sums.cumulative_bytes += rows.cumulative_bytes(row);
        sums.cumulative_blocks += rows.cumulative_blocks(row);
    }

    std::vector<CallSite> top(std::size_t most, bool at_peak) const {
        std::vector<CallSite> sites;
        for (const auto& [key, sums] : sums_) sites.push_back(sums.site(at_peak, key.first, key.second));
        most = std::min(most, sites.size());
        std::partial_sort(sites.begin(), sites.begin() + static_cast<std::ptrdiff_t>(most), sites.end(),
                          [](const CallSite& a, const CallSite& b) { return a.bytes > b.bytes; });
        sites.resize(most);
        return sites;
    }

    CallSite unattributed(bool at_peak) const { return unattributed_.site(at_peak, "OTHER", ""); }

    std::int64_t whole(bool at_peak) const {
        std::int64_t bytes = unattributed(at_peak).bytes;
        for (const auto& [key, sums] : sums_) bytes += sums.site(at_peak, "", "").bytes;
        return bytes;
    }

  private:
    struct Sums {
        std::int64_t peak_bytes = 0, peak_blocks = 0, cumulative_bytes = 0, cumulative_blocks = 0;

        CallSite site(bool at_peak, const std::string& place, const std::string& function) const {
            return {at_peak ? peak_bytes : cumulative_bytes, at_peak ? peak_blocks : cumulative_blocks, place,
                    function};
        }
    };
    std::map<std::pair<std::string, std::string>, Sums> sums_;
    Sums unattributed_;
};

bool is_highest(Figures& figures, std::int64_t bytes, const std::string& word) {
    if (bytes <= figures.peak_bytes) return false;
    figures.has_peak = true;
    figures.peak_bytes = bytes;
    figures.peak_word = word;
    return true;
}

void offer_exact_peak(Figures& figures, const memview::Run& run) {
    if (!is_highest(figures, run.paths->nodes.sum(mem_column::peak.key), run.name)) return;
    const auto time = run.paths->totals.find("Peak milliseconds");
    figures.peak_is_exact = true;
    figures.peak_milliseconds = time == run.paths->totals.end() ? 0 : time->second;
}

void offer_peak(Figures& figures, std::int64_t bytes, std::uint64_t index, const std::string& word) {
    if (!is_highest(figures, bytes, word)) return;
    figures.peak_is_exact = false;
    figures.peak_index = index;
}

void add_names(const SiteRows& rows, std::size_t row, Figures& figures) {
    const std::int64_t bytes = rows.cumulative_bytes(row);
    if (rows.has_line(row)) {
        figures.bytes_with_lines += bytes;
        return;
    }
    const std::string module = rows.module(row);
    const bool is_named = !rows.function(row).starts_with(module + "+0x");
    (is_named ? figures.bytes_with_functions : figures.bytes_with_modules) += bytes;
    figures.bytes_without_lines[module] += bytes;
}

void add_sites(const Table& table, const Names& names, Figures& figures, Sites& sites) {
    figures.has_totals = figures.has_totals || table.rows != 0;
    figures.cumulative_bytes += table.sum(mem_column::cumulative.key);
    figures.cumulative_blocks += table.sum(mem_column::cumulative_blocks.key);
    figures.current_bytes += table.sum(mem_column::current.key);
    figures.current_blocks += table.sum(mem_column::current_blocks.key);
    const SiteRows rows(table, names);
    for (std::size_t row = 0; row < table.rows; ++row) {
        if (rows.is_other(row))
            figures.unattributed_bytes += rows.cumulative_bytes(row);
        else
            add_names(rows, row, figures);
        sites.add(rows, row);
    }
}

// Runs `read` and says whether the report can be used.
template <class Read>
bool is_readable(const Read& read) {
    try {
        read();
        return true;
    } catch (const memview::ReportError&) {
        return false;
    }
}

void read_sites(memview::Run& run, Names& names, Figures& figures, Sites& sites) {
    memview::Problems left_out(true);
    if (const auto paths = run.files.find(mem_report::call_paths.kind); paths != run.files.end())
        is_readable([&] { run.paths = memview::read_paths(paths->second, names); });
    if (run.paths) offer_exact_peak(figures, run);
    const auto found = run.files.find(mem_report::call_sites.kind);
    if (found == run.files.end()) return;
    const bool is_good = is_readable([&] {
        run.tables.push_back(memview::read_table(found->second, *memview::table_kind(found->first), names,
                                                 left_out, run.peak_index));
    });
    if (!is_good) return;
    memview::add_exact_peaks(run, names);
    const Table& table = run.tables.front();
    add_sites(table, names, figures, sites);
    offer_peak(figures, table.sum(mem_column::peak.key), run.peak_index.value_or(0), run.name);
}

// The highest sample over all modules; only for a run without call sites, which know their own peak.
void read_timeline(const memview::Run& run, Figures& figures) {
    const auto found = run.files.find(mem_report::module_timeline.kind);
    if (found == run.files.end()) return;
    memview::Problems left_out(true);
    memview::SeriesVisitor visitor;
    visitor.header = [](const std::vector<std::string>&) {};
    visitor.row = [&, index = std::uint64_t{0}](std::string_view,
                                                std::span<const std::int64_t> values) mutable {
        figures.peak_is_sample = true;
        offer_peak(figures, std::accumulate(values.begin(), values.end(), std::int64_t{0}), index++,
                   run.name);
    };
    is_readable([&] { memview::scan_series(found->second, found->first, left_out, visitor); });
}

void read_leaks(const memview::Run& run, Names& names, Figures& figures) {
    for (const auto& file : run.files) {
        const std::string& path = file.second;
        const bool is_shared = fs::path(path).filename() == memview::fast_leak_file;
        if (!is_shared && file.first != mem_report::leaks.kind) continue;
        std::vector<Table> tables;
        memview::Problems strict(false);
        if (!is_readable([&] { memview::read_leaks(path, names, strict, tables); })) continue;
        figures.has_leaks = true;
        figures.leaked_bytes += tables.front().sum(mem_column::current.key);
    }
}

bool ends_with_a_line(const fs::path& path) {
    std::ifstream file(path, std::ios::ate);
    return file.tellg() > 0 && file.seekg(-1, std::ios::end).get() == '\n';
}

// The last line of a file, as far as a closing line is long.
std::string last_line(const fs::path& path) {
    constexpr std::streamoff longest = 200;
    std::ifstream file(path, std::ios::ate);
    file.seekg(-std::min<std::streamoff>(longest, file.tellg()), std::ios::end);
    std::string end(std::istreambuf_iterator<char>(file), {});
    if (!end.ends_with('\n')) return "";
    end.pop_back();
    return end.substr(end.rfind('\n') + 1);
}

void look_for_ends(const std::string& folder, Figures& figures) {
    std::error_code error;
    const std::string sites = std::string(memview::file_prefix) + mem_report::call_sites.kind + ".";
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        figures.has_files = figures.has_files || is_report_name(name);
        if (!name.starts_with(memview::file_prefix)) continue;
        const bool is_whole = name.starts_with(sites) ? is_closing_line(last_line(entry.path()))
                                                      : ends_with_a_line(entry.path());
        if (!is_whole) figures.cut_file = name;
    }
}

}  // namespace

Figures read_figures(const std::string& folder, std::size_t most_sites) {
    Figures figures;
    look_for_ends(folder, figures);
    std::vector<memview::Run> runs;
    is_readable([&] { runs = memview::find_runs(folder); });
    Sites sites;
    Names names;
    for (memview::Run& run : runs) {
        read_sites(run, names, figures, sites);
        read_leaks(run, names, figures);
        run.tables.clear();
        run.paths.reset();
    }
    figures.top_sites = sites.top(most_sites, figures.has_peak);
    figures.unattributed = sites.unattributed(figures.has_peak);
    figures.whole_bytes = sites.whole(figures.has_peak);
    if (figures.has_totals || figures.has_peak) return figures;
    for (const memview::Run& run : runs) read_timeline(run, figures);
    return figures;
}

}  // namespace memrun
