// Everybody's share at the exact peak of a process, as its report of call paths has it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace memrun {

struct Held {
    std::int64_t bytes = 0;
    std::int64_t blocks = 0;
};

struct ExactPeak {
    Held all;
    std::int64_t milliseconds = 0;                     // since the start of the process
    std::map<std::string, Held, std::less<>> by_site;  // by address as the call-site report writes it
};

// Empty when there is no such report or it does not reach its end.
std::optional<ExactPeak> read_exact_peak(const std::filesystem::path& report);

}  // namespace memrun
