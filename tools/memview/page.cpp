#include "tools/memview/page.h"

#include <random>

#include "tools/memview/assets.h"
#include "tools/memview/page_data.h"
#include "tools/reports/report_kinds.h"

namespace memview {
namespace {

constexpr std::size_t largest_page = 10'000'000;

// Scripts and styles of the page carry this word, and the page forbids all others; it is not to be guessed,
// so that no name in a report could be written to fit it.
std::string make_nonce() {
    static constexpr char hex_digits[] = "0123456789abcdef";
    std::random_device random;
    std::string nonce;
    for (int i = 0; i < 4; ++i) {
        for (std::uint32_t bits = random(), n = 0; n < 8; ++n, bits >>= 4) nonce += hex_digits[bits & 15];
    }
    return nonce;
}

// Puts the parts into the places that the page names as "@PART@". What is put in is not searched again.
std::string filled(std::string_view form,
                   const std::vector<std::pair<std::string_view, std::string_view>>& parts) {
    std::string out;
    while (!form.empty()) {
        const std::size_t at = form.find('@');
        out += form.substr(0, at);
        if (at == std::string_view::npos) break;
        form.remove_prefix(at);
        std::size_t used = 1;
        for (const auto& [name, text] : parts) {
            if (!form.starts_with(name)) continue;
            out += text;
            used = name.size();
            break;
        }
        if (used == 1) out += '@';
        form.remove_prefix(used);
    }
    return out;
}

std::string assemble(const std::string& data) {
    const std::string nonce = make_nonce();
    return filled(asset("page.html"), {{"@NONCE@", nonce},
                                       {"@DYGRAPH_CSS@", asset("dygraph.css")},
                                       {"@PAGE_CSS@", asset("page.css")},
                                       {"@DYGRAPH_JS@", asset("dygraph.js")},
                                       {"@D3_JS@", asset("d3.js")},
                                       {"@PAGE_JS@", asset("page.js")},
                                       {"@DATA@", data}});
}

const Table* shown_table(const Run& run, const char* key) {
    const Table* table = run.table(key);
    return table != nullptr && table->rows > 0 ? table : nullptr;
}

FlameData flame_data(const Paths& paths, Names& names, std::size_t most_nodes) {
    static const std::vector<FlameMeasure> measures = {
        {"peak", "Peak bytes", Unit::bytes},
        {"current", "Bytes at the end", Unit::bytes},
        {"cumulative", "Cumulative bytes", Unit::bytes},
        {"peak_blocks", "Peak blocks", Unit::blocks},
        {"current_blocks", "Blocks at the end", Unit::blocks},
        {"cumulative_blocks", "Cumulative blocks", Unit::blocks},
        {"temporary_blocks", "Temporary blocks", Unit::blocks}};
    std::vector<const char*> columns;
    columns.reserve(measures.size());
    for (const FlameMeasure& measure : measures) columns.push_back(measure.key);
    FlameData flame{PathTree(names, columns.size()), measures};
    flame.tree.add(paths, columns, 0, {.most_nodes = most_nodes});
    return flame;
}

PageProcess page_process(const Run& run, Names& names, const PageLimits& limits) {
    PageProcess process;
    process.name = run.name;
    process.folder = run.folder;
    process.tracked = tracked(run);
    process.figures = summary(run);
    process.peak_index = run.peak_index;
    if (run.clock) process.clock = &*run.clock;
    if (run.resident) process.resident = &*run.resident;
    for (const char* key : {"sites", "modules", "bins", "tags", "leaks", "fast_leaks", "filtered"}) {
        if (const Table* table = shown_table(run, key)) process.tables.push_back(table);
    }
    process.charts = read_charts(run, limits.stretches);
    if (run.paths) process.flame.emplace(flame_data(*run.paths, names, limits.nodes));
    return process;
}

}  // namespace

std::string make_page(const std::function<Page(const PageLimits&)>& make) {
    PageLimits limits;
    for (;;) {
        std::string page = assemble(page_data(make(limits), limits));
        if (page.size() <= largest_page) return page;
        if (limits.rows == 0 && limits.nodes == 0) {
            throw ReportError(
                {"the page", 0, "does not fit 10 MB with so many processes: choose some with --process"});
        }
        limits.rows /= 2;
        limits.nodes /= 2;
        limits.stretches = std::max<std::size_t>(limits.stretches / 2, 32);
    }
}

std::string make_run_page(const Folder& folder) {
    return make_page([&folder](const PageLimits& limits) {
        Page page{"Memory of " + folder.runs.front().name, *folder.names, folder.left_out, {}};
        if (folder.runs.size() > 1)
            page.title = "Memory of " + std::to_string(folder.runs.size()) + " processes";
        for (const Run& run : folder.runs) page.processes.push_back(page_process(run, *folder.names, limits));
        return page;
    });
}

}  // namespace memview
