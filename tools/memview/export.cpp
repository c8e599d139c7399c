#include "tools/memview/export.h"

#include "tools/memview/units.h"

namespace memview {
namespace {

std::string csv_cell(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

std::string cell_text(const Column& column, std::size_t row, const Names& names) {
    const std::int64_t value = column.cells[row];
    switch (column.spec.unit) {
        case Unit::text:
            return csv_cell(names.text(value));
        case Unit::address:
            return hex_address(value);
        case Unit::thousandths:
            return fixed_thousandths(value);
        case Unit::line:
        case Unit::bytes:
        case Unit::blocks:
            break;
    }
    return std::to_string(value);
}

void write_csv_rows(const Table& table, const Names& names, const std::string& first, std::ostream& out) {
    for (std::size_t row = 0; row < table.rows; ++row) {
        std::string line = first;
        for (const Column& column : table.columns) {
            if (&column != &table.columns.front()) line += ',';
            line += cell_text(column, row, names);
        }
        out << line << '\n';
    }
}

// Semicolons part the frames and the last blank parts the figure.
std::string collapsed_frame(std::string text) {
    for (char& c : text) {
        if (c == ';') c = ',';
        if (c == '\n' || c == '\r') c = ' ';
    }
    return text;
}

}  // namespace

const Table& sites_of(const Run& run) {
    const Table* sites = run.table("sites");
    if (sites == nullptr)
        throw ReportError({run.folder, 0, "process " + in_quotes(run.name) + " has no call sites"});
    return *sites;
}

SiteFrames frames_of(const Table& sites, std::size_t row, const Names& names) {
    const auto text = [&](const char* column) { return names.text((*sites.cells(column))[row]); };
    SiteFrames frames{text("module"), text("file"), text("function"), (*sites.cells("line"))[row]};
    for (std::string* name : {&frames.module, &frames.file, &frames.function}) {
        if (name->empty()) *name = (*sites.cells("address"))[row] == 0 ? "OTHER" : "unknown";
    }
    return frames;
}

// With several processes a first column names each; with one the file is the report with commas.
void export_csv(const Folder& folder, const std::string& table_key, std::ostream& out) {
    const bool many = folder.runs.size() > 1;
    bool headed = false;
    for (const Run& run : folder.runs) {
        const Table* table = run.table(table_key);
        if (table == nullptr) continue;
        for (const Column& column : table->columns) {
            if (headed) break;
            out << (&column == &table->columns.front() ? (many ? "Process," : "") : ",")
                << csv_cell(column.spec.title);
        }
        if (!headed) out << '\n';
        headed = true;
        write_csv_rows(*table, folder.names, many ? csv_cell(run.name) + "," : "", out);
    }
    if (!headed) throw ReportError({folder.runs.front().folder, 0, "holds no table " + in_quotes(table_key)});
}

void export_collapsed(const Folder& folder, const std::string& measure, std::ostream& out) {
    for (const Run& run : folder.runs) {
        const Table& sites = sites_of(run);
        const std::vector<std::int64_t>& values = *sites.cells(measure);
        const std::string first = folder.runs.size() > 1 ? collapsed_frame(run.name) + ";" : "";
        for (std::size_t row = 0; row < sites.rows; ++row) {
            if (values[row] <= 0) continue;
            const SiteFrames frames = frames_of(sites, row, folder.names);
            out << first << collapsed_frame(frames.module) << ';' << collapsed_frame(frames.file) << ';'
                << collapsed_frame(frames.function) << ':' << frames.line << ' ' << values[row] << '\n';
        }
    }
}

void export_reports(const Folder& folder, const Options& options, std::ostream& out) {
    if (options.format == "pprof") export_pprof(folder, out);
    if (options.format == "json") export_json(folder, out);
    if (options.format == "csv") export_csv(folder, options.table, out);
    if (options.format == "collapsed") export_collapsed(folder, options.sort, out);
    if (options.format == "speedscope") export_speedscope(folder, out);
}

}  // namespace memview
