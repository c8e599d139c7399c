// The call paths of real processes: agree with the call sites, name the callers, and change nothing else.
#include <numeric>
#include <regex>
#include <set>
#include <sstream>
#include <vector>

#include "tests/process/child_process.h"

namespace {

const std::string with_sites = "VELDRIN_MEM_PROFILE_PER_FILELINE=1 ";
const std::string with_paths = with_sites + "VELDRIN_MEM_PROFILE_CALL_PATHS=1 ";

using Row = std::vector<std::string>;
std::vector<Row> rows_of(const std::string& text) {
    std::vector<Row> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream cells(line);
        for (rows.emplace_back(); std::getline(cells, line, '\t');) rows.back().push_back(line);
    }
    return rows;
}

std::multiset<std::string> lines_of(const std::string& text) {
    std::multiset<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.insert(line);
    return lines;
}

// Current bytes and blocks, cumulative bytes and blocks.
using Sums = std::array<long, 4>;
Sums sums_of(const Row& row, const std::array<std::size_t, 4>& columns) {
    Sums sums{};
    for (std::size_t i = 0; i < columns.size(); ++i) sums[i] = std::stol(row[columns[i]]);
    return sums;
}

struct Paths {
    std::map<std::string, long> head;
    std::map<std::string, Sums> by_site;
    std::map<std::string, long>
        blocks;  // current ones of each path, as "function<function<...", places alone
    std::map<std::string, long> blocks_in;  // current ones, by the module of the innermost frame
    int deepest = 0;

    explicit Paths(const ENDING& ending) {
        std::map<std::string, std::string> place, module, way{{"0", ""}};
        std::map<std::string, int> depth;
        int table = 0;
        for (const Row& row : rows_of(ending.files.at("mem_tbb_call_paths.vii.log"))) {
            if (row.empty()) ++table;
            if (table == 1 && row.size() == 2 && row[0] != "Key") head[row[0]] = std::stol(row[1]);
            if (table == 2 && row.size() == 8 && row[0] != "Frame") {
                std::smatch name;
                if (std::regex_search(row[7], name, std::regex(R"(\w+_place)")))
                    place[row[0]] = name.str() + "<";
                module[row[0]] = row[4];
            }
            if (table != 3 || row.size() != 13 || row[0] == "Node") continue;
            deepest = std::max(deepest, depth[row[0]] = depth[row[1]] + 1);
            // A recursion is one place.
            const std::string& here = place[row[2]];
            way[row[0]] = way[row[1]].starts_with(here) ? way[row[1]] : here + way[row[1]];
            const Sums sums = sums_of(row, {4, 5, 9, 10});
            blocks[way[row[0]]] += sums[1];
            blocks_in[module[row[2]]] += sums[1];
            if (row[3] == "-") continue;
            for (std::size_t i = 0; i < sums.size(); ++i) by_site[row[3]][i] += sums[i];
        }
    }
};

// What the report of call sites says, in the same form. OTHER has no module.
std::map<std::string, Sums> sites_of(const ENDING& ending) {
    std::map<std::string, Sums> sites;
    for (const Row& row : rows_of(ending.files.at("mem_tbb_fileline.vii.log")))
        if (row.size() >= 14 && row[0] != "Address") sites[row[0]] = sums_of(row, {1, 7, 4, 10});
    std::erase_if(sites, [](const auto& site) { return site.second == Sums{}; });
    return sites;
}

TEST(CallPaths, AgreeWithTheCallSitesAndNameTheCallersOfAllStacks) {
    const ENDING ending = run("tracked_host paths", with_paths);
    ASSERT_EQ(ending.how, "exit 0") << ending.error;
    Paths paths(ending);
    EXPECT_EQ(paths.by_site, sites_of(ending));
    EXPECT_EQ(paths.blocks["deep_place<"], 101);
    EXPECT_EQ(paths.blocks["coroutine_place<"], 10);
    EXPECT_EQ(paths.blocks["between_place<"], 10);
    EXPECT_EQ(paths.blocks["handler_place<interrupted_place<"], 10);
    EXPECT_EQ(paths.blocks["interrupted_place<"], 10);
    EXPECT_EQ(paths.blocks["leaving_place<staying_place<"], 10);
    EXPECT_EQ(paths.blocks["staying_place<"], 10);
    EXPECT_EQ(paths.blocks_in["one"], 6);
    EXPECT_EQ(paths.blocks_in["two"], 3);
    EXPECT_EQ(paths.blocks["thread_place<"], 200);
    EXPECT_FALSE(paths.blocks.contains("forked_place<"));
    EXPECT_EQ(paths.head["Shortened events"], 0);
}

// Figures of each path, by its addresses: bytes and blocks that it holds, held at the peak, and ever had.
std::map<std::string, std::array<long, 6>> by_addresses(const std::string& report) {
    std::map<std::string, std::array<long, 6>> figures;
    std::map<std::string, std::string> address, way{{"0", ""}};
    int table = 0;
    for (const Row& row : rows_of(report)) {
        if (row.empty()) ++table;
        if (table == 2 && row.size() >= 7) address[row[0]] = row[2] + "<";
        if (table != 3 || row.size() != 13 || row[0] == "Node") continue;
        way[row[0]] = way[row[1]] + address[row[2]];
        std::array<long, 6>& sum = figures[way[row[0]]];
        constexpr std::array<std::size_t, 6> columns = {4, 5, 7, 8, 9, 10};
        for (std::size_t i = 0; i < sum.size(); ++i) sum[i] += std::stol(row[columns[i]]);
    }
    return figures;
}

TEST(CallPaths, AreThoseOfAnEventLogByAnotherUnwinder) {
    const ENDING ending =
        run("tracked_host truth " BUILT "/module.so " BUILT "/forms_gcc_O2/forms_plugin.so", with_paths);
    ASSERT_EQ(ending.how, "exit 0") << ending.error;
    auto reported = by_addresses(ending.files.at("mem_tbb_call_paths.vii.log"));
    std::istringstream lines(ending.files.at("truth"));
    int paths = 0;
    for (std::string line; std::getline(lines, line); ++paths) {
        std::istringstream in(line);
        std::array<long, 6> figures;
        for (long& figure : figures) in >> figure;
        std::string way;
        in >> way;
        EXPECT_EQ(reported[way], figures) << way;
    }
    EXPECT_GT(paths, 500);
}

TEST(CallPaths, AreCutWithoutRoomAndStillAgree) {
    for (const char* too_little :
         {"VELDRIN_MEM_PROFILE_CALL_PATH_NODES=40 ", "VELDRIN_MEM_PROFILE_CALL_PATH_NODES=1 "}) {
        const ENDING ending = run("tracked_host paths", with_paths + too_little);
        ASSERT_EQ(ending.how, "exit 0") << ending.error;
        Paths paths(ending);
        EXPECT_EQ(paths.by_site, sites_of(ending));
        EXPECT_GT(paths.head["Shortened events"], 200);
        EXPECT_LT(paths.head["Nodes"], 100);
    }
}

TEST(CallPaths, AreCutWithoutMemoryForMoreAndStillAgree) {
    const ENDING ending = run("tracked_host scarce_paths", with_paths);
    ASSERT_EQ(ending.how, "exit 0") << ending.error;
    Paths paths(ending);
    EXPECT_EQ(paths.by_site, sites_of(ending));
    EXPECT_GT(paths.head["Shortened events"], 1000);
    EXPECT_LT(paths.head["Shortened events"], 1 << 14);
}

TEST(CallPaths, OfARecursionAMillionDeepAreFew) {
    const ENDING ending = run("sh -c 'ulimit -s 1000000 && tracked_host deep_paths'", with_paths);
    ASSERT_EQ(ending.how, "exit 0") << ending.error;
    Paths paths(ending);
    EXPECT_EQ(paths.by_site, sites_of(ending));
    EXPECT_EQ(paths.blocks["deep_place<"], 1001);
    EXPECT_LT(paths.head["Nodes"], 2000);
    EXPECT_EQ(paths.head["Depth"], 128);
    EXPECT_GE(paths.deepest, 120);  // those of the allocator are none
    EXPECT_LE(paths.deepest, 256);
}

TEST(CallPaths, ChangeNoOtherReport) {
    // Modules that are loaded later lie somewhere else when the paths have taken their memory, and rows that
    // are equal in what they are sorted by stand in another order then.
    const std::regex time("Time spent dumping:.*|0x7f[0-9a-f]+");
    std::map<std::string, std::multiset<std::string>> files[2];
    for (const bool with : {false, true}) {
        const ENDING ending =
            run("setarch -R tracked_host paths",
                track_all + "VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=64 " +
                    (with ? "VELDRIN_MEM_PROFILE_CALL_PATHS=1" : "VELDRIN_MEM_PROFILE_CALL_PATHS=0"));
        for (const auto& [name, text] : ending.files)
            if (name.starts_with("mem_tbb_") &&
                !std::regex_search(name, std::regex("auxiliary|clock|call_paths")))
                files[with][name] = lines_of(std::regex_replace(text, time, ""));
    }
    EXPECT_EQ(files[1], files[0]);
    EXPECT_EQ(files[0].size(), 13U);
}

}  // namespace
