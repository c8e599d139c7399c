// The figures of a run, as its report files have them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace memrun {

struct CallSite {
    std::int64_t bytes = 0;  // at the peak, or all in all in a run without one
    std::int64_t blocks = 0;
    std::string place;  // FILE:LINE, or the module when the line is not known
    std::string function;
};

struct Figures {
    bool has_files = false;
    std::string cut_file;  // a report that does not reach its end; empty when there is none
    // From the call sites of all processes.
    bool has_totals = false;
    std::int64_t cumulative_bytes = 0;
    std::int64_t cumulative_blocks = 0;
    std::int64_t current_bytes = 0;
    std::int64_t current_blocks = 0;
    std::vector<CallSite> top_sites;      // by bytes, highest first
    CallSite unattributed;                // what no call site was found for
    std::int64_t whole_bytes = 0;         // of these and of all call sites, at the peak or all in all as they
    std::int64_t unattributed_bytes = 0;  // of the cumulative ones
    // How well the cumulative bytes with a call site are named.
    std::int64_t bytes_with_lines = 0;
    std::int64_t bytes_with_functions = 0;
    std::int64_t bytes_with_modules = 0;
    std::map<std::string, std::int64_t> bytes_without_lines;  // by module
    // The highest recorded peak of one process.
    bool has_peak = false;
    bool peak_is_sample = false;  // the highest sample of a run that records no peak
    std::int64_t peak_bytes = 0;
    std::uint64_t peak_index = 0;        // number of the sampling point
    bool peak_is_exact = false;          // from the call paths, which know no sampling point
    std::int64_t peak_milliseconds = 0;  // of an exact peak, since the start of its process
    std::string peak_word;               // the process
    // From the leak reports.
    bool has_leaks = false;
    std::int64_t leaked_bytes = 0;
};

// Reads the reports in a folder. A row that is cut or does not parse is left out.
Figures read_figures(const std::string& folder, std::size_t most_sites);

}  // namespace memrun
