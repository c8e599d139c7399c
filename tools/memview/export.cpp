#include "tools/memview/export.h"

#include <algorithm>

#include "tools/memview/path_stacks.h"
#include "tools/memview/units.h"
#include "tools/reports/exact_peak.h"

namespace memview {
namespace {

void append_csv(std::string& out, std::string_view text) {
    const bool is_plain = std::none_of(text.begin(), text.end(),
                                       [](char c) { return c == ',' || c == '"' || c == '\r' || c == '\n'; });
    if (is_plain) {
        out += text;
    } else {
        append_quoted(out, text, "\"\"");
    }
}

void append_cell(std::string& out, const Column& column, std::size_t row, const Names& names) {
    const std::int64_t value = column.cells[row];
    switch (column.spec.unit) {
        case Unit::text:
            return append_csv(out, names.text(value));
        case Unit::address:
        case Unit::site:
            out += hex_address(value);
            return;
        case Unit::thousandths:
            out += fixed_thousandths(value);
            return;
        case Unit::line:
        case Unit::bytes:
        case Unit::blocks:
            return append_number(out, value);
    }
}

void write_csv_rows(const Table& table, const Names& names, const std::string& first, std::ostream& out) {
    std::string line;
    for (std::size_t row = 0; row < table.rows; ++row) {
        line = first;
        for (const Column& column : table.columns) {
            if (&column != &table.columns.front()) line += ',';
            append_cell(line, column, row, names);
        }
        out << (line += '\n');
    }
}

// Semicolons part the frames and the last blank parts the figure.
void append_frame(std::string& out, std::string_view text) {
    const std::size_t begin = out.size();
    out += text;
    for (std::size_t i = begin; i < out.size(); ++i) {
        char& c = out[i];
        if (c == ';') c = ',';
        if (c == '\n' || c == '\r') c = ' ';
    }
}

}  // namespace

const Table& sites_of(const Run& run) {
    const Table* sites = run.table("sites");
    if (sites == nullptr)
        throw ReportError({run.folder, 0, "process " + in_quotes(run.name) + " has no call sites"});
    return *sites;
}

SiteFrames::SiteFrames(const Table& sites, Names& names)
    : places_(sites),
      address_(*sites.cells("address")),
      unknown_(names.id_of("unknown")),
      other_(names.id_of("OTHER")) {}

Place SiteFrames::operator[](std::size_t row) const {
    Place site = places_[row];
    for (std::int64_t* name : {&site.module, &site.file, &site.function}) {
        if (*name == 0) *name = address_[row] == 0 ? other_ : unknown_;
    }
    return site;
}

// With several processes a first column names each; with one the file is the report with commas.
void export_csv(const Folder& folder, const std::string& table_key, std::ostream& out) {
    const bool many = folder.runs.size() > 1;
    bool headed = false;
    for (const Run& run : folder.runs) {
        const Table* table = run.table(table_key);
        if (table == nullptr) continue;
        std::string line;
        for (const Column& column : table->columns) {
            line += &column == &table->columns.front() ? (many ? "Process," : "") : ",";
            append_csv(line, column.spec.title);
        }
        if (!headed) out << line << '\n';
        headed = true;
        line.clear();
        if (many) {
            append_csv(line, run.name);
            line += ',';
        }
        write_csv_rows(*table, *folder.names, line, out);
    }
    if (!headed) throw ReportError({folder.runs.front().folder, 0, "holds no table " + in_quotes(table_key)});
}

namespace {

void append_figure(std::string& line, std::int64_t value, std::ostream& out) {
    line += ' ';
    append_number(line, value);
    out << (line += '\n');
}

void write_collapsed_sites(const Run& run, const std::string& measure, Names& names, const std::string& first,
                           std::ostream& out) {
    const Table& sites = sites_of(run);
    const Cells& values = *sites.cells(meant_column(sites, measure));
    const SiteFrames frames(sites, names);
    std::string line;
    for (std::size_t row = 0; row < sites.rows; ++row) {
        if (values[row] <= 0) continue;
        const Place site = frames[row];
        line = first;
        for (const std::int64_t name : {site.module, site.file, site.function}) {
            if (!line.empty()) line += ';';
            append_frame(line, names.text(name));
        }
        line += ':';
        append_number(line, site.line);
        append_figure(line, values[row], out);
    }
}

void write_collapsed_paths(const Paths& paths, const Cells& values, Names& names, const std::string& first,
                           std::ostream& out) {
    PathStacks stacks(paths, names);
    std::string line;
    for (std::size_t node = 1; node <= paths.nodes.rows; ++node) {
        if (values[node - 1] <= 0) continue;
        line = first;
        for (const std::uint32_t row : stacks.rows(node)) {
            if (!line.empty()) line += ';';
            append_frame(line, names.text(stacks.place(row).function));
        }
        append_figure(line, values[node - 1], out);
    }
}

}  // namespace

// Paths have no maximum of their own.
void export_collapsed(const Folder& folder, const std::string& measure, std::ostream& out) {
    for (const Run& run : folder.runs) {
        std::string first;
        if (folder.runs.size() > 1) append_frame(first, run.name);
        const Cells* of_nodes = run.paths ? run.paths->nodes.cells(measure) : nullptr;
        if (of_nodes != nullptr) {
            write_collapsed_paths(*run.paths, *of_nodes, *folder.names, first, out);
        } else {
            write_collapsed_sites(run, measure, *folder.names, first, out);
        }
    }
}

void export_reports(const Folder& folder, const Options& options, std::ostream& out) {
    if (options.format == "json") return export_json(folder, out);
    if (options.format == "csv") return export_csv(folder, options.table, out);
    for (const Run& run : folder.runs) {
        if (!run.paths) sites_of(run);
    }
    if (options.format == "pprof") export_pprof(folder, out);
    if (options.format == "collapsed") export_collapsed(folder, options.sort, out);
    if (options.format == "speedscope") export_speedscope(folder, out);
}

}  // namespace memview
