#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>

#include "tests/fuzz/targets.h"
#include "tools/reports/clock_reader.h"
#include "tools/reports/exact_peak.h"
#include "tools/reports/leak_reader.h"
#include "tools/reports/path_reader.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/resident_reader.h"
#include "tools/reports/series_reader.h"
#include "tools/reports/table_reader.h"

namespace fuzz {

namespace {

using namespace memview;

// A reader may refuse a file, and in no other way than this.
void attempt(const std::function<void(Problems&)>& read) {
    for (const bool keeps_going : {true, false}) {
        try {
            Problems problems(keeps_going);
            read(problems);
        } catch (const ReportError&) {
        }
    }
}

void read_tables(const std::string& path) {
    for (const char* kind : {"fileline", "subsystem", "pbin_stats", "pbin_stats_mb"}) {
        attempt([&](Problems& problems) {
            Names names;
            std::optional<std::uint64_t> index;
            const Table table = read_table(path, *table_kind(kind), names, problems, index);
            for (const Column& column : table.columns) column.cells.sum();
        });
    }
}

// Also together with the call sites, which the exact peak is added to.
void read_call_paths(const std::string& path) {
    attempt([&](Problems&) {
        Names names;
        Run run;
        run.paths = read_paths(path, names);
        run.tables.push_back(empty_table("sites", path, mem_report::call_sites.columns));
        const std::int64_t first_row[] = {0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
        run.tables.front().add_row(first_row);
        add_exact_peaks(run, names);
    });
}

void take(Bytes bytes) {
    const MemoryFile file(bytes);
    const std::string path = file.path();
    read_tables(path);
    read_call_paths(path);
    for (const char* kind : {module_timeline, module_timeline_detailed, auxiliary_timeline})
        attempt([&](Problems& problems) { read_timeline(path, kind, problems); });
    attempt([&](Problems& problems) { read_clock(path, problems); });
    attempt([&](Problems& problems) { read_resident(path, problems); });
    attempt([&](Problems& problems) {
        Names names;
        std::vector<Table> tables;
        read_leaks(path, names, problems, tables);
    });
    attempt([&](Problems& problems) {
        Names names;
        read_filtered(path, names, problems);
    });
}

std::string titles(std::span<const MEM_COLUMN> columns) {
    std::string line;
    for (const MEM_COLUMN& column : columns) line += (line.empty() ? "" : "\t") + std::string(column.title);
    return line + "\n";
}

std::vector<std::string> seeds() {
    const std::string end = "Time spent dumping:\t1 clicks.\t0.001 seconds.\n";
    std::vector<std::string> all = {
        "MEM: Call Paths.\n\nKey\tValue\nVersion\t1\nNodes\t2\n\n" + titles(mem_column::of_frames) +
            "1\t0\t0x10\t0\tapp\t/a.cpp\t3\tf()\n1\t1\t0x10\t0\tapp\t/a.cpp\t9\tg()\n\n" +
            titles(mem_column::of_nodes) +
            "1\t0\t1\t0x10\t8\t1\t8\t16\t2\t24\t3\t24\t0\n2\t1\t1\t-\t0\t0\t0\t0\t0\t0\t0\t0\t0\n\n" + end,
        "MEM: Resident Memory.\n\nLimit of the cgroup\tnone\nLimit of the address space\t9000\n\n" +
            titles(mem_column::of_resident) +
            "5\t10\tsample\t900\t400\t-\t1\t2\t3\t4\t5\t6\t-\t-\t-\t-\t-\t-\t-\t-\t-\t0\n" + end,
        "For more detail, use INI mem_check_leaks=on\n\napp memory leak "
        "summary\n===============================\n"
        "Leaked bytes:            700000\nPeak bytes on heap:     "
        "2150000\n===============================\n\n"};
    for (const auto& entry : std::filesystem::directory_iterator(EXPECTED_REPORTS)) {
        std::ifstream file(entry.path());
        all.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return all;
}

}  // namespace

const Target reports = {"reports", take, seeds};

}  // namespace fuzz
