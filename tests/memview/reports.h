#pragma once

// Folders of reports made by hand, for the tests.

#include <filesystem>
#include <fstream>
#include <string>

#include "tools/reports/report_kinds.h"

namespace memview_test {

// The first lines of a report as the library writes it.
inline std::string head(const std::string& kind, int lines) {
    std::ifstream report(EXPECTED_REPORTS "/mem_tbb_" + kind + ".scripted.log");
    std::string text;
    for (std::string line; lines > 0 && std::getline(report, line); --lines) text += line + "\n";
    return text;
}
inline const std::string SITES_HEAD = head("fileline", 3);
inline const std::string OTHER_SITE = "OTHER\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t\t\t0\t\n";
inline const std::string CLOSING = "Time spent dumping:\t3 clicks.\t0.003 seconds.\n";
inline const std::string MODULES_HEAD = head("subsystem", 3);
inline const std::string STATS_HEAD = head("pbin_tag_stats", 3);
inline const std::string STATS_MIB_HEAD = head("pbin_tag_stats_mb", 3);
inline const std::string TIMELINE_HEAD = head("timeline", 2);
inline const std::string DETAILED_HEAD = head("timeline_detailed", 2);
inline const std::string AUXILIARY_HEAD = head("auxiliary_timeline", 3);
inline const std::string LEAK_HEAD = head("leak_warning", 2);
inline const std::string FILTERS_HEAD = head("filters", 1);
inline const std::string FAST_HEAD = "For more detail, use INI mem_check_leaks=on\n\n";
inline const std::string RULE = "===============================\n";

// A call site of the program "app" in /src/a.cpp whose figures are all multiples of its peak.
inline std::string site(int line, int peak, const std::string& function = "work()", int current = 0) {
    const std::string p = std::to_string(peak);
    return "0x" + std::to_string(line) + "\t" + std::to_string(current) + "\t" + p + "\t" + p + "\t" +
           std::to_string(2 * peak) + "\t" + p + "\t0\t" + (current > 0 ? "1" : "0") +
           "\t1\t1\t2\tapp\t/src/a.cpp\t" + std::to_string(line) + "\t" + function + "\n";
}

inline std::string sites(const std::string& rows) {
    return SITES_HEAD + rows + OTHER_SITE + CLOSING;
}

inline const std::string RESIDENT_HEAD =
    "MEM: Resident Memory.\n\nLimit of the cgroup\tnone\nLimit of the address space\t9000\n\n"
    "Milliseconds\tEvent\tPoint\tResident\tBlocks\tRounding\tUnknown blocks\tTracker blocks\tKept by "
    "threads\t"
    "Kept in between\tKept free\tAllocator tables\tNever touched\tTracker mappings\tStacks\tCode\tModule "
    "data\t"
    "Files\tShared memory\tAnonymous\tUnexplained\tGiven back\n";
// 1000 = 500 + 20 + 1 + 2 + 3 + 4 + 300 + 5 - 35 + 200; 7 were given back.
inline const std::string RESIDENT_ROWS =
    "5\t10\tsample\t900\t400\t-\t1\t2\t3\t4\t5\t6\t-\t-\t-\t-\t-\t-\t-\t-\t-\t0\n"
    "9\t20\tfull\t1000\t500\t20\t1\t2\t3\t4\t300\t5\t-35\t0\t0\t200\t0\t0\t0\t0\t0\t7\n";

inline const std::string PATHS_HEAD =
    "MEM: Call Paths.\n\nKey\tValue\nVersion\t1\nNodes\t3\nPeak bytes\t900\n\n"
    "Frame\tLevel\tAddress\tFiltered\tModule\tFile\tLine\tFunction\n";
inline const std::string NODES_HEAD =
    "\nNode\tParent\tFrame\tSite\tCurrent bytes\tCurrent blocks\tCurrent requested bytes\tPeak bytes\tPeak "
    "blocks\t"
    "Cumulative bytes\tCumulative blocks\tCumulative requested bytes\tTemporary blocks\n";
inline const std::string FRAME_ROWS =
    "1\t0\t0x10\t0\tapp\t/src/m.cpp\t3\tmain\n"
    "2\t0\t0x20\t1\tapp\t/usr/v.h\t7\tstd::vector<int, std::allocator<int> >::push_back(int)\n"
    "2\t1\t0x20\t0\tapp\t/src/a.cpp\t1\twork()\n";
// main holds 100 of OTHER; work() of line 1 was called from main with 300 and from deeper with 500 at the
// peak.
inline const std::string NODE_ROWS =
    "1\t0\t1\tOTHER\t0\t0\t0\t100\t1\t100\t1\t90\t0\n"
    "2\t1\t2\t0x1\t30\t1\t28\t300\t3\t700\t7\t650\t2\n"
    "3\t0\t2\t0x1\t0\t0\t0\t500\t5\t500\t5\t500\t0\n";

inline std::string paths(const std::string& frames = FRAME_ROWS, const std::string& nodes = NODE_ROWS) {
    return PATHS_HEAD + frames + NODES_HEAD + nodes + "\n" + CLOSING;
}

inline std::string fast_summary(const std::string& program, int leaked, int peak) {
    const auto field = [](int value) {
        const std::string digits = std::to_string(value);
        return std::string(12 - digits.size(), ' ') + digits + "\n";
    };
    return program + " memory leak summary\n" + RULE + "Leaked bytes:      " + field(leaked) +
           "Peak bytes on heap:" + field(peak) + RULE + "\n";
}

// Removes itself with what it holds.
class Scratch {
  public:
    Scratch() {
        std::string form = (std::filesystem::temp_directory_path() / "memview-XXXXXX").string();
        m_path = ::mkdtemp(form.data());
    }
    ~Scratch() { std::filesystem::remove_all(m_path); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::string path(const std::string& name = {}) const {
        return name.empty() ? m_path : m_path + "/" + name;
    }
    std::string write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }

  private:
    std::string m_path;
};

}  // namespace memview_test
