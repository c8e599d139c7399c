#include "platform/proc_text.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace {

constexpr std::uint64_t highest = std::numeric_limits<std::uint64_t>::max();
using FIGURES = std::array<std::uint64_t, 2>;

FIGURES read_in_pieces(const std::string& text, std::size_t piece_size) {
    std::array<PROC_FIGURE, 2> figures = {{{"VmRSS:"}, {"VmPeak:"}}};
    PROC_KEY_READER reader(figures);
    for (std::size_t at = 0; at < text.size(); at += piece_size)
        reader.feed(std::string_view(text).substr(at, piece_size));
    return {figures[0].bytes, figures[1].bytes};
}

TEST(ProcText, ReadsKilobytesOfWantedKeysWhateverThePieces) {
    const std::pair<std::string, FIGURES> cases[] = {
        {"Name:\tx\nVmPeak:\t     20 kB\nVmSize:\t 1 kB\nVmRSS:\t 3 kB\n", {3072, 20480}},
        {"Name:\tVmRSS: 9 kB\n VmRSS: 8 kB\nVmRSSx: 7 kB\nVmRSS: 3 kB\n", {3072, 0}},
        {"Groups:\t" + std::string(70000, '4') + "\nVmRSS:\t1 kB\n", {1024, 0}},
        {"VmRSS: 3 kB", {0, 0}},  // a line that was cut off is not trusted
        {"VmRSS:\nVmRSS: -1 kB\nVmPeak: kB\n\n\n", {0, 0}},
        {"VmRSS: 99999999999999999999999 kB\nVmPeak: 18446744073709551615 kB\n", {highest, highest}},
    };
    for (const auto& [text, expected] : cases)
        for (const std::size_t size : {1u, 7u, 128u, 100000u})
            EXPECT_EQ(read_in_pieces(text, size), expected) << text.substr(0, 60) << size;
}

TEST(ProcText, CountsMinorAndMajorFaultsOfTheProcessItself) {
    const std::string tail = " S 1 2 3 4 5 6 100 9000 20 8000 0 0";
    const std::pair<std::string, std::optional<std::uint64_t>> cases[] = {
        {"7 (tool)" + tail, 120},        {"7 (a) (b c) S 9 9)" + tail, 120},
        {"7 (new\nline)" + tail, 120},   {"7 (tool) S 1 2 3 4 5 6 100 9000", std::nullopt},
        {"7 tool" + tail, std::nullopt}, {"7 (tool) S 1 2 3 4 5 6 x 9000 20 0", std::nullopt},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(proc_stat_page_faults(text), expected) << text;
}

}  // namespace
