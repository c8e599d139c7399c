#pragma once

// Folders of reports made by hand, for the tests.

#include <filesystem>
#include <fstream>
#include <string>

namespace memview_test {

inline std::string sites_head(std::uint64_t index) {
    return "MEM: TBB Fileline Tracking Memory Snapshot. [at index " + std::to_string(index) +
           "]\n\nAddress\tCurrent bytes\tMax bytes\tPeak bytes\tCumulative bytes\tCumulative requested "
           "bytes\t"
           "Cumulative mismatched bytes\tCurrent blocks\tMax blocks\tPeak blocks\tCumulative blocks\tModule\t"
           "File\tLine\tFunction\n";
}
inline const std::string SITES_HEAD = sites_head(7);
inline const std::string OTHER_SITE = "OTHER\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t\t\t0\t\n";
inline const std::string CLOSING = "Time spent dumping:\t3 clicks.\t0.003 seconds.\n";
inline const std::string MODULES_HEAD =
    "MEM: TBB Subsystem Tracking Memory Snapshot.\n\n"
    "Subsystem\tCurrent bytes\tPeak bytes\tCumulative bytes\tCumulative requested bytes\tCumulative "
    "mismatched bytes\t"
    "Current blocks\tPeak blocks\tCumulative blocks\n";
inline const std::string STATS_HEAD =
    "Memory Tracking - Profile Tag Stats\n\nName\tMax bytes\tPeak bytes\tCumulative bytes\tCurrent bytes\n";
inline const std::string STATS_MIB_HEAD =
    "Memory Tracking - Profile Tag Stats (MiB)\n\nName\tMax MiB\tPeak MiB\tCumulative MiB\tCurrent MiB\n";
inline const std::string TIMELINE_HEAD = "MEM: TBB Module Tracking Memory Timeline.\n\n";
inline const std::string DETAILED_HEAD = "MEM: TBB Module Tracking Detailed Memory Timeline.\n\n";
inline const std::string AUXILIARY_HEAD =
    "MEM: TBB Auxiliary Timeline\n\n"
    "page_faults\tcommit_charge\tresident\tprofiler_num_allocs\tprofiler_num_deallocs\tprofiler_num_"
    "outstanding\t"
    "profiler_requested_total\tprofiler_requested_outstanding\tprofiler_allocated_total\t"
    "profiler_allocated_outstanding\n";
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
