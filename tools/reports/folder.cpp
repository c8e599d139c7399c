#include "tools/reports/folder.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "tools/reports/clock_reader.h"
#include "tools/reports/exact_peak.h"
#include "tools/reports/leak_reader.h"
#include "tools/reports/path_reader.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/resident_reader.h"
#include "tools/reports/series_reader.h"
#include "tools/reports/size_note.h"
#include "tools/reports/table_reader.h"

namespace memview {
namespace {

namespace fs = std::filesystem;

constexpr const char* leak_kind = mem_report::leaks.kind;
constexpr const char* filter_kind = "filters";
constexpr const char* fast_leak_kind = "fast_leak_warning";

bool is_kind(std::string_view kind) {
    return table_kind(kind) != nullptr || timeline_title(kind) != nullptr || kind == leak_kind ||
           kind == filter_kind || kind == clock_kind || kind == paths_kind || kind == resident_kind;
}

// Splits "mem_tbb_KIND.WORD.log"; the word may hold points and may be empty.
bool split_name(const std::string& file, std::string& kind, std::string& word) {
    if (!file.starts_with(file_prefix) || !file.ends_with(file_suffix)) return false;
    const std::string middle =
        file.substr(file_prefix.size(), file.size() - file_prefix.size() - file_suffix.size());
    const std::size_t point = middle.find('.');
    if (point == std::string::npos) return false;
    kind = middle.substr(0, point);
    word = middle.substr(point + 1);
    return is_kind(kind);
}

std::vector<std::string> file_names(const std::string& folder) {
    std::error_code error;
    if (!fs::exists(folder, error)) throw ReportError({folder, 0, "no such folder"});
    if (!fs::is_directory(folder, error)) throw ReportError({folder, 0, "is not a folder"});
    std::vector<std::string> names;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        names.push_back(it->path().filename().string());
    }
    if (error) throw ReportError({folder, 0, "cannot be listed: " + error.message()});
    std::sort(names.begin(), names.end());
    return names;
}

void read_file(Run& run, const std::string& kind, const std::string& path, Names& names, Problems& problems) {
    if (const TableKind* table = table_kind(kind)) {
        run.tables.push_back(read_table(path, *table, names, problems, run.peak_index));
    } else if (timeline_title(kind) != nullptr) {
        run.timelines[kind] = read_timeline(path, kind, problems);
    } else if (kind == clock_kind) {
        run.clock = read_clock(path, problems);
    } else if (kind == resident_kind) {
        run.resident = read_resident(path, problems);
    } else if (kind == paths_kind) {
        run.paths = read_paths(path, names);
    } else if (kind == filter_kind) {
        run.tables.push_back(read_filtered(path, names, problems));
    } else {
        read_leaks(path, names, problems, run.tables);
    }
}

void read_run(Run& run, Names& names, Problems& problems) {
    for (const auto& [kind, path] : run.files) {
        try {
            read_file(run, kind, path, names, problems);
        } catch (const ReportError& error) {
            if (!problems.keep_going()) throw;
            problems.add(
                {error.problem().file, error.problem().line, error.problem().reason + " (file left out)"});
        }
    }
    add_exact_peaks(run, names);
}

// Runs of different folders may bear one name; then the folder goes in front of it.
void part_equal_names(std::vector<Run>& runs) {
    std::map<std::string, int> uses;
    for (const Run& run : runs) ++uses[run.name];
    for (Run& run : runs) {
        if (uses[run.name] > 1) run.name = (fs::path(run.folder) / run.name).string();
    }
}

void check_folders(const std::vector<std::string>& folders) {
    std::set<fs::path> seen;
    for (const std::string& folder : folders) {
        std::error_code error;
        if (!seen.insert(fs::weakly_canonical(folder, error)).second) {
            throw ReportError({folder, 0, "is given twice: its processes would bear one name"});
        }
    }
}

}  // namespace

std::vector<Run> find_runs(const std::string& folder) {
    std::map<std::string, Run> by_word;
    std::vector<std::string> shared;
    for (const std::string& name : file_names(folder)) {
        std::string kind;
        std::string word;
        const std::string path = (fs::path(folder) / name).string();
        if (name == fast_leak_file || name == shared_leak_file) shared.push_back(path);
        if (!split_name(name, kind, word)) continue;
        Run& run = by_word[word];
        run.name = word;
        run.folder = folder;
        run.files[kind] = path;
    }
    for (const std::string& path : shared) {
        const std::string word = by_word.size() == 1 ? by_word.begin()->first : "(shared leak log)";
        Run& run = by_word[word];
        run.name = word;
        run.folder = folder;
        const bool first = run.files.try_emplace(fast_leak_kind, path).second;
        if (!first) run.files[std::string(fast_leak_kind) + "2"] = path;
    }
    if (by_word.empty()) throw ReportError({folder, 0, "holds no report files (mem_tbb_*.log)"});
    std::vector<Run> runs;
    runs.reserve(by_word.size());
    for (auto& entry : by_word) runs.push_back(std::move(entry.second));
    return runs;
}

std::unique_ptr<Folder> read_folders(const FolderRequest& request, std::shared_ptr<Names> names) {
    check_folders(request.folders);
    auto result = std::make_unique<Folder>();
    result->names = std::move(names);
    std::string found;
    for (const std::string& folder : request.folders) {
        for (Run& run : find_runs(folder)) {
            found += (found.empty() ? "" : ", ") + in_quotes(run.name);
            if (request.process.empty() || run.name == request.process)
                result->runs.push_back(std::move(run));
        }
    }
    if (result->runs.empty()) {
        throw ReportError({request.folders.front(), 0,
                           "holds no process " + in_quotes(request.process) + ", only " + found});
    }
    part_equal_names(result->runs);
    Problems problems(request.keep_going);
    for (const std::string& folder : request.folders) find_cut_reports(folder, problems);
    for (Run& run : result->runs) read_run(run, *result->names, problems);
    const bool read_any = std::any_of(result->runs.begin(), result->runs.end(), [](const Run& run) {
        return !run.tables.empty() || !run.timelines.empty() || run.paths || run.resident;
    });
    if (!read_any) throw ReportError(problems.kept().front());
    result->left_out = problems.lines();
    return result;
}

}  // namespace memview
