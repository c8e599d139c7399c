// The parts that figures pass through on their way to the reader.

#include <gmock/gmock.h>

#include <CLI/CLI.hpp>

#include "tests/memview/reports.h"
#include "tools/memview/chart.h"
#include "tools/memview/folder.h"
#include "tools/memview/suppressions.h"
#include "tools/memview/units.h"

namespace {

using namespace memview;
using namespace memview_test;

TEST(Units, BytesForPeople) {
    const std::pair<std::int64_t, const char*> CASES[] = {{0, "0 B"},           {1023, "1023 B"},
                                                          {1024, "1.0 KiB"},    {1048524, "1023.9 KiB"},
                                                          {1048575, "1.0 MiB"}, {INT64_MIN, "-8.0 EiB"}};
    for (const auto& [bytes, text] : CASES) EXPECT_EQ(human_bytes(bytes), text);
    EXPECT_EQ(human_change(2048), "+2.0 KiB");
    EXPECT_EQ(grouped(-1234567), "-1,234,567");
    EXPECT_EQ(grouped(999), "999");
}

TEST(Units, AmountsFromTheCommandLine) {
    const std::pair<const char*, double> CASES[] = {{"0", 0},          {"64K", 65536}, {"1.5G", 1610612736},
                                                    {"2MiB", 2097152}, {"7B", 7},      {"10%", 100}};
    for (const auto& [text, bytes] : CASES) EXPECT_EQ(parse_amount(text).of(1000), bytes) << text;
    for (const char* text : {"", "K", "-1", "1X", "1KX", "10 %", "1e3", "inf"})
        EXPECT_THROW(parse_amount(text), CLI::ValidationError) << text;
}

TEST(Units, TextThatFitsATerminal) {
    EXPECT_EQ(shortened("abcdef", 4), "abc…");
    EXPECT_EQ(shortened("äöüß", 4), "äöüß");
    EXPECT_EQ(shortened("äöüßx", 3), "äö…");
    EXPECT_EQ(shortened_path("/home/user/project/file.cpp", 14), "…/file.cpp");
    EXPECT_EQ(shortened_path("/averyveryverylongname.cpp", 10), "…gname.cpp");
    EXPECT_EQ(harmless("a\033[31m\nb\xc2\x9b\x63\xc3\xa4"), "a?[31m?b??c\xc3\xa4");
    EXPECT_EQ(sparkline({0, 50, 100, 0}, 4), "▁▅█▁");
    EXPECT_EQ(sparkline({0, 100, 0, 0}, 2), "█▁");
    EXPECT_EQ(sparkline({-5, 0}, 9), "▁▁");
}

TEST(Suppressions, MatchLikeLeakSanitizers) {
    const std::tuple<const char*, const char*, bool> CASES[] = {{"foo", "a::foo(int)", true},
                                                                {"^foo", "a::foo", false},
                                                                {"^a*foo$", "a::foo", true},
                                                                {"foo$", "foo(int)", false},
                                                                {"f*o*i", "foo(int)", true},
                                                                {"f*x", "foo(int)", false},
                                                                {"*", "", true},
                                                                {"^$", "x", false},
                                                                {"a*a*a*a*b", "aaaaaaaaaaaaaaaa", false}};
    for (const auto& [pattern, text, matches] : CASES)
        EXPECT_EQ(matches_pattern(pattern, text), matches) << pattern;
}

TEST(Suppressions, AreReadStrictly) {
    Scratch scratch;
    const std::string good = scratch.write("good", "# known\n\n  leak:libfoo.so \r\nleak:bar");
    EXPECT_THAT(Suppressions::read(good).unused(), testing::ElementsAre("libfoo.so", "bar"));
    const std::string bad = scratch.write("bad", "leak:a\nrace:b\n");
    EXPECT_THAT([&] { Suppressions::read(bad); },
                testing::ThrowsMessage<ReportError>(bad + ":2: leak:PATTERN expected, found \"race:b\""));
}

// Of a long course the rows with the extremes stay, whole and in order, and their number is bounded.
TEST(Chart, ThinningKeepsTheExtremes) {
    constexpr std::size_t MOST = 16;
    RowThinner thinner(MOST);
    for (std::uint64_t i = 0; i < 10000; ++i) {
        const auto noise = static_cast<std::int64_t>(i * 7919 % 101);
        const std::int64_t first = i == 1234 ? 100000 : 1000 + noise;
        const std::int64_t second = i == 4321 ? -50000 : i == 8765 ? 9000 : 2000 - noise;
        thinner.add({i, 0, {first, second}});
    }
    const std::vector<ChartRow> rows = thinner.take();
    EXPECT_LE(rows.size(), MOST * 4);
    EXPECT_TRUE(std::is_sorted(rows.begin(), rows.end(),
                               [](const ChartRow& a, const ChartRow& b) { return a.index < b.index; }));
    std::vector<std::uint64_t> extremes;
    for (const ChartRow& row : rows)
        if (row.values[0] == 100000 || row.values[1] == -50000 || row.values[1] == 9000)
            extremes.push_back(row.index);
    EXPECT_THAT(extremes, testing::ElementsAre(1234, 4321, 8765));
}

// With more tags than a chart has colours, the lowest are summed up, and nothing is lost.
TEST(Chart, SumsUpTheSeriesThatHaveNoPlace) {
    Scratch scratch;
    std::string names, values;
    for (int i = 1; i <= 20; ++i) {
        names += "\ttag" + std::to_string(i);
        values += "\t" + std::to_string(i);
    }
    scratch.write("mem_tbb_pbin_tag_timeline_detailed.a.log",
                  DETAILED_HEAD + names + "\nwork" + values + "\nrest" + values + "\n" + CLOSING);
    const auto folder = read_folders({{scratch.path()}, "", false});
    const Chart chart = read_charts(folder->runs[0], 512).at(0);
    EXPECT_TRUE(chart.rest);
    ASSERT_EQ(chart.series.size(), 19u);
    EXPECT_EQ(chart.series.front(), "the other 2 series");
    EXPECT_EQ(chart.series.back(), "tag20");
    EXPECT_EQ(chart.rows[0].values.front(), 3);
    EXPECT_EQ(chart.rows[0].values.back(), 20);
    EXPECT_THAT(chart.labels, testing::ElementsAre("work", "rest"));
    EXPECT_EQ(chart.rows[1].label, 1u);
}

}  // namespace
