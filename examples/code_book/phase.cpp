#include "phase.h"

#include <ktl_mem/profile_bins.h>

#include <cstdint>
#include <cstdio>

namespace code_book {

Phase::Phase(const std::string& name, const std::string& tag) : name_(name), tag_(tag) {
    mem_open_profile_bin(name_, tag_);
}

Phase::~Phase() {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::uint64_t peak = 0;
    mem_close_profile_bin(tag_, &start, &end, &peak);
    const char* indent = tag_.empty() ? "  " : "";
    std::printf("%s%-*s  %8.0f KiB before, %8.0f KiB after, %8.0f KiB at its highest\n", indent,
                tag_.empty() ? 18 : 20, name_.c_str(), static_cast<double>(start) / 1024,
                static_cast<double>(end) / 1024, static_cast<double>(peak) / 1024);
}

}  // namespace code_book
