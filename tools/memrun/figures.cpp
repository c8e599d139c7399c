#include "tools/memrun/figures.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>
#include <utility>

#include "tools/common/closing_line.h"
#include "tools/memrun/exact_peak.h"
#include "tools/memrun/output_folder.h"
#include "tools/memrun/report_row.h"

namespace fs = std::filesystem;

namespace memrun {

namespace {

constexpr std::string_view fileline_prefix = "mem_tbb_fileline.";
constexpr std::string_view timeline_prefix = "mem_tbb_timeline.";
constexpr std::string_view paths_prefix = "mem_tbb_call_paths.";
constexpr std::string_view leaks_prefix = "mem_tbb_leak_warning.";
constexpr std::string_view fast_leaks_name = "mem_tbb_fast_leak_warning.log";

// Columns of the call-site report.
enum Column : std::size_t {
    column_address = 0,
    column_current_bytes = 1,
    column_peak_bytes = 3,
    column_cumulative_bytes = 4,
    column_current_blocks = 7,
    column_peak_blocks = 9,
    column_cumulative_blocks = 10,
    column_module = 11,
    column_file = 12,
    column_line = 13,
    column_function = 14,
    column_count = 15
};

std::string word_of(const std::string& file_name, std::string_view prefix) {
    constexpr std::string_view suffix = ".log";
    return file_name.substr(prefix.size(), file_name.size() - prefix.size() - suffix.size());
}

std::string place_of(const Fields& row) {
    if (row[column_line] == "0") return "module " + std::string(row[column_module]);
    return std::string(row[column_file]) + ":" + std::string(row[column_line]);
}

using ExactPeaks = std::map<std::string, ExactPeak>;  // by process

ExactPeaks read_exact_peaks(const std::string& folder) {
    ExactPeaks peaks;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(paths_prefix)) continue;
        if (auto peak = read_exact_peak(entry.path()))
            peaks.emplace(word_of(name, paths_prefix), std::move(*peak));
    }
    return peaks;
}

void offer_exact_peaks(Figures& figures, const ExactPeaks& peaks) {
    for (const auto& [word, peak] : peaks) {
        if (peak.all.bytes <= figures.peak_bytes) continue;
        figures.has_peak = figures.peak_is_exact = true;
        figures.peak_bytes = peak.all.bytes;
        figures.peak_milliseconds = peak.milliseconds;
        figures.peak_word = word;
    }
}

// Call sites at one line are one to the reader, whatever their addresses.
class Sites {
  public:
    // Of the process whose rows follow; null where only the recorded peak is known. Must outlive them.
    void begin_process(ExactPeak* exact) { exact_ = exact; }

    void add(const Fields& row) {
        const Held at_peak = share_at_peak(row);
        const bool is_site = row[column_address] != "OTHER";
        Sums& sums = is_site ? sums_[{place_of(row), std::string(row[column_function])}] : unattributed_;
        sums.peak_bytes += at_peak.bytes;
        sums.peak_blocks += at_peak.blocks;
        sums.cumulative_bytes += number(row[column_cumulative_bytes]);
        sums.cumulative_blocks += number(row[column_cumulative_blocks]);
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
    // Two rows of one address share what the paths of both have, which goes to the first.
    Held share_at_peak(const Fields& row) {
        if (exact_ == nullptr) return {number(row[column_peak_bytes]), number(row[column_peak_blocks])};
        const auto site = exact_->by_site.find(row[column_address]);
        return site == exact_->by_site.end() ? Held() : std::exchange(site->second, Held());
    }

    struct Sums {
        std::int64_t peak_bytes = 0, peak_blocks = 0, cumulative_bytes = 0, cumulative_blocks = 0;

        CallSite site(bool at_peak, const std::string& place, const std::string& function) const {
            return {at_peak ? peak_bytes : cumulative_bytes, at_peak ? peak_blocks : cumulative_blocks, place,
                    function};
        }
    };
    std::map<std::pair<std::string, std::string>, Sums> sums_;
    Sums unattributed_;
    ExactPeak* exact_ = nullptr;
};

void offer_peak(Figures& figures, std::int64_t bytes, std::uint64_t index, const std::string& word) {
    if (bytes <= figures.peak_bytes) return;
    figures.has_peak = true;
    figures.peak_is_exact = false;
    figures.peak_bytes = bytes;
    figures.peak_index = index;
    figures.peak_word = word;
}

void add_names(const Fields& row, Figures& figures) {
    const std::int64_t bytes = number(row[column_cumulative_bytes]);
    if (row[column_line] != "0") {
        figures.bytes_with_lines += bytes;
        return;
    }
    const std::string module(row[column_module]);
    const bool is_named = !row[column_function].starts_with(module + "+0x");
    (is_named ? figures.bytes_with_functions : figures.bytes_with_modules) += bytes;
    figures.bytes_without_lines[module] += bytes;
}

void add_row(const Fields& row, Figures& figures, Sites& sites) {
    figures.has_totals = true;
    figures.cumulative_bytes += number(row[column_cumulative_bytes]);
    figures.cumulative_blocks += number(row[column_cumulative_blocks]);
    figures.current_bytes += number(row[column_current_bytes]);
    figures.current_blocks += number(row[column_current_blocks]);
    if (row[column_address] == "OTHER")
        figures.unattributed_bytes += number(row[column_cumulative_bytes]);
    else
        add_names(row, figures);
    sites.add(row);
}

void read_fileline(const fs::path& path, const std::string& word, Figures& figures, Sites& sites) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    const std::size_t index = line.find("[at index ");
    const std::uint64_t at =
        index == std::string::npos ? 0 : number(std::string_view(line).substr(index + 10));
    std::int64_t peak = 0;
    for (int heading = 0; heading < 2; ++heading) std::getline(file, line);
    bool is_whole = false;
    while (!is_whole && std::getline(file, line)) {
        const Fields row = split(line);
        is_whole = is_closing_line(line);
        if (row.size() != column_count) continue;
        add_row(row, figures, sites);
        peak += number(row[column_peak_bytes]);
    }
    if (!is_whole) figures.cut_file = path.filename().string();
    offer_peak(figures, peak, at, word);
}

// The highest sample over all modules; only for a run without call sites, which know their own peak.
void read_timeline(const fs::path& path, const std::string& word, Figures& figures) {
    std::ifstream file(path);
    std::string line;
    for (int heading = 0; heading < 3; ++heading) std::getline(file, line);
    for (std::uint64_t index = 0; std::getline(file, line) && !line.starts_with("Time spent"); ++index) {
        std::int64_t sum = 0;
        const Fields row = split(line);
        for (std::size_t i = 1; i < row.size(); ++i) sum += number(row[i]);
        figures.peak_is_sample = true;
        offer_peak(figures, sum, index, word);
    }
}

// Takes the number behind `label` from each line that begins with it.
void read_leaks(const fs::path& path, std::string_view label, Figures& figures) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with(label)) continue;
        std::string_view rest = std::string_view(line).substr(label.size());
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
        figures.has_leaks = true;
        figures.leaked_bytes += number(rest);
    }
}

bool ends_with_a_line(const fs::path& path) {
    std::ifstream file(path, std::ios::ate);
    return file.tellg() > 0 && file.seekg(-1, std::ios::end).get() == '\n';
}

void read_report(const fs::path& path, ExactPeaks& peaks, Figures& figures, Sites& sites) {
    const std::string name = path.filename().string();
    figures.has_files = figures.has_files || is_report_name(name);
    if (name.starts_with("mem_tbb_") && !ends_with_a_line(path)) figures.cut_file = name;
    if (name.starts_with(fileline_prefix)) {
        const std::string word = word_of(name, fileline_prefix);
        const auto exact = peaks.find(word);
        sites.begin_process(exact == peaks.end() ? nullptr : &exact->second);
        read_fileline(path, word, figures, sites);
    }
    if (name.starts_with(leaks_prefix)) read_leaks(path, "Total leaked bytes: ", figures);
    if (name == fast_leaks_name) read_leaks(path, "Leaked bytes:", figures);
}

}  // namespace

Figures read_figures(const std::string& folder, std::size_t most_sites) {
    Figures figures;
    Sites sites;
    ExactPeaks peaks = read_exact_peaks(folder);
    offer_exact_peaks(figures, peaks);
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error))
        read_report(entry.path(), peaks, figures, sites);
    figures.top_sites = sites.top(most_sites, figures.has_peak);
    figures.unattributed = sites.unattributed(figures.has_peak);
    figures.whole_bytes = sites.whole(figures.has_peak);
    if (figures.has_totals || figures.has_peak) return figures;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error))
        if (const std::string name = entry.path().filename().string(); name.starts_with(timeline_prefix))
            read_timeline(entry.path(), word_of(name, timeline_prefix), figures);
    return figures;
}

}  // namespace memrun
