#pragma once

// The self-contained page: what it holds, and how it is put together within its size.

#include <functional>
#include <string>
#include <vector>

#include "tools/memview/chart.h"
#include "tools/memview/path_tree.h"
#include "tools/memview/summary.h"
#include "tools/reports/model.h"

namespace memview {

// What the flame graph draws.
struct FlameMeasure {
    const char* key;  // the column of the nodes
    const char* title;
    Unit unit;
};
struct FlameData {
    PathTree tree;
    std::vector<FlameMeasure> measures;  // a figure of the tree each
    bool is_comparison = false;          // the measures are "before" and "after"
};

// One process, or one comparison, as the page shows it. The tables must outlive it.
struct PageProcess {
    std::string name;
    std::string folder;
    std::vector<std::string> tracked;
    std::vector<Figure> figures;
    std::optional<std::uint64_t> peak_index;
    const SampleClock* clock = nullptr;  // null when there is none; outlives it, too
    std::vector<const Table*> tables;
    std::vector<Chart> charts;
    std::optional<FlameData> flame;
    const Resident* resident = nullptr;  // null when there is none; outlives it, too
};

struct Page {
    std::string title;
    const Names& names;
    std::vector<std::string> left_out;
    std::vector<PageProcess> processes;
};

// How much of a run goes into a page.
struct PageLimits {
    std::size_t rows = 2000;      // of a table, by each of its figures
    std::size_t stretches = 512;  // of a chart
    std::size_t nodes = 100000;   // of the call paths
};

// The page as a file. `make` is called with ever tighter limits until the result is at most 10 MB.
std::string make_page(const std::function<Page(const PageLimits&)>& make);

// The page of the runs of a folder.
std::string make_run_page(const Folder& folder);

}  // namespace memview
