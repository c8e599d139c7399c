#include "tools/memview/growth.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "tools/memview/units.h"
#include "tools/reports/folder.h"

namespace fs = std::filesystem;

namespace memview {
namespace {

constexpr const char* marks_folder = "marks";
constexpr std::size_t widest_mark = 16;

// The oldest first; a mark is never changed once it is there.
std::vector<fs::path> marks_below(const std::string& folder) {
    std::vector<std::pair<fs::file_time_type, fs::path>> found;
    std::error_code error;
    if (!fs::is_directory(folder, error)) throw ReportError({folder, 0, "is no folder of reports"});
    for (const fs::directory_entry& mark : fs::directory_iterator(fs::path(folder) / marks_folder, error)) {
        fs::file_time_type made = fs::file_time_type::max();
        for (const fs::directory_entry& report : fs::directory_iterator(mark.path(), error))
            made = std::min(made, report.last_write_time(error));
        found.emplace_back(made, mark.path());
    }
    if (found.size() < 2) {
        throw ReportError({folder, 0,
                           "holds " + std::string(found.empty() ? "no mark" : "one mark") +
                               ", and growth shows between two or more: make them with ktl_memctl " + folder +
                               " mark NAME"});
    }
    std::sort(found.begin(), found.end());
    std::vector<fs::path> marks;
    marks.reserve(found.size());
    for (auto& [made, path] : found) marks.push_back(std::move(path));
    return marks;
}

void add_mark(const Folder& folder, std::size_t mark, std::size_t marks,
              std::map<Place, GrowingSite>& sites) {
    for (const Run& run : folder.runs) {
        const Table* table = run.table("sites");
        if (table == nullptr) continue;
        const Cells& current = *table->cells("current");
        const PlaceReader places(*table);
        for (std::size_t row = 0; row < table->rows; ++row) {
            GrowingSite& site = sites[places[row]];
            site.place = places[row];
            site.held.resize(marks);
            site.held[mark] += current[row];
        }
    }
}

std::string place_text(const Place& place, const Names& names) {
    if (place.module == 0 && place.file == 0) return "OTHER";
    if (place.line == 0) return "module " + std::string(names.text(place.module));
    return harmless(names.text(place.file)) + ":" + std::to_string(place.line);
}

}  // namespace

Growth read_growth(const std::string& folder, const std::string& process, bool keep_going) {
    const std::vector<fs::path> marks = marks_below(folder);
    Growth growth;
    growth.names = std::make_shared<Names>();
    std::map<Place, GrowingSite> sites;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        const auto mark = read_folders({{marks[i].string()}, process, keep_going}, growth.names);
        growth.marks.push_back(marks[i].filename().string());
        add_mark(*mark, i, marks.size(), sites);
        growth.left_out.insert(growth.left_out.end(), mark->left_out.begin(), mark->left_out.end());
    }
    growth.totals.resize(marks.size());
    for (auto& [place, site] : sites) {
        for (std::size_t i = 0; i < marks.size(); ++i) growth.totals[i] += site.held[i];
        growth.sites.push_back(std::move(site));
    }
    std::stable_sort(growth.sites.begin(), growth.sites.end(),
                     [](const GrowingSite& a, const GrowingSite& b) { return a.growth() > b.growth(); });
    return growth;
}

void print_growth(const Growth& growth, std::size_t top, const Terminal& terminal, std::ostream& out) {
    using Align = TextTable::Align;
    std::vector<TextTable::Heading> headings = {{"growth", Align::right}};
    for (const std::string& mark : growth.marks)
        headings.push_back({shortened(harmless(mark), widest_mark), Align::right});
    headings.push_back({"place", Align::left, TextTable::Cut::start});
    headings.push_back({"function", Align::left, TextTable::Cut::end});
    TextTable table(headings);
    const auto add = [&table](const std::vector<std::int64_t>& held, const std::string& place,
                              const std::string& function) {
        std::vector<std::string> cells = {human_change(held.back() - held.front())};
        for (const std::int64_t bytes : held) cells.push_back(human_bytes(bytes));
        cells.push_back(place);
        cells.push_back(function);
        table.add(std::move(cells));
    };
    add(growth.totals, "all", "");
    const std::size_t rows = top == 0 ? growth.sites.size() : std::min(top, growth.sites.size());
    for (std::size_t i = 0; i < rows; ++i) {
        const GrowingSite& site = growth.sites[i];
        add(site.held, place_text(site.place, *growth.names),
            harmless(growth.names->text(site.place.function)));
    }
    table.print(out, terminal);
}

void write_growth_json(const Growth& growth, std::ostream& out) {
    nlohmann::json sites = nlohmann::json::array();
    for (const GrowingSite& site : growth.sites) {
        sites.push_back({{"growth", site.growth()},
                         {"held", site.held},
                         {"module", growth.names->text(site.place.module)},
                         {"file", growth.names->text(site.place.file)},
                         {"line", site.place.line},
                         {"function", growth.names->text(site.place.function)}});
    }
    const nlohmann::json all = {
        {"marks", growth.marks}, {"totals", growth.totals}, {"sites", std::move(sites)}};
    out << all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

}  // namespace memview
