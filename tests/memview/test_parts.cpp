// The parts that figures pass through on their way to the reader.

#include <gmock/gmock.h>

#include <CLI/CLI.hpp>

#include "tests/memview/reports.h"
#include "tools/common/readable_names.h"
#include "tools/memview/chart.h"
#include "tools/memview/resident_parts.h"
#include "tools/memview/suppressions.h"
#include "tools/memview/units.h"
#include "tools/reports/folder.h"

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
    // Two columns each, and an accent that takes none.
    EXPECT_EQ(shortened("型の名", 6), "型の名");
    EXPECT_EQ(shortened("型の名", 5), "型の…");
    EXPECT_EQ(shortened("型の名", 4), "型…");
    EXPECT_EQ(shortened("e\u0301e\u0301", 2), "e\u0301e\u0301");
    EXPECT_EQ(shortened("\xff\xffxyz", 4), "\xff\xffx…");
    EXPECT_EQ(shortened_path("/名前/長い.cpp", 9), "…長い.cpp");
    EXPECT_EQ(shortened_path("/home/user/project/file.cpp", 14), "…/file.cpp");
    EXPECT_EQ(shortened_path("/averyveryverylongname.cpp", 10), "…gname.cpp");
    EXPECT_EQ(harmless("a\033[31m\nb\xc2\x9b\x63\xc3\xa4"), "a?[31m?b??c\xc3\xa4");
    EXPECT_EQ(sparkline({0, 50, 100, 0}, 4), "▁▅█▁");
    EXPECT_EQ(sparkline({0, 100, 0, 0}, 2), "█▁");
    EXPECT_EQ(sparkline({-5, 0}, 9), "▁▁");
}

TEST(ReadableNames, FoldWhatNobodyWrites) {
    const std::string text =
        "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >";
    const std::pair<std::string, const char*> CASES[] = {
        {text, "std::string"},
        {"f[abi:cxx11](" + text + " const&)::{lambda(int)#1}::operator()(int) const",
         "f(std::string const&)::{lambda(int)#1}::operator()(int) const"},
        {"std::map<" + text + ", std::vector<int, std::allocator<int> >, std::less<" + text +
             ">, std::allocator<std::pair<" + text +
             " const, std::vector<int, std::allocator<int> > > > >::~map()",
         "std::map<std::string, std::vector<int>>::~map()"},
        {"std::set<int, std::greater<int>, std::allocator<int>>", "std::set<int, std::greater<int>>"},
        {"std::unordered_map<int, a::B, std::hash<int>, std::equal_to<int>, std::allocator<std::pair<int "
         "const, a::B>>>",
         "std::unordered_map<int, a::B>"},
        {"std::unique_ptr<T, std::default_delete<T> >::reset(T*)", "std::unique_ptr<T>::reset(T*)"},
        {"std::basic_ostream<char, std::char_traits<char> >& std::operator<< <std::char_traits<char> >(int)",
         "std::ostream& std::operator<< <std::char_traits<char>>(int)"},
        {"nlohmann::json_abi_v3_11_2::basic_json<std::map, std::vector, " + text +
             ", bool, long, unsigned long, double, std::allocator, "
             "nlohmann::json_abi_v3_11_2::adl_serializer, "
             "std::vector<unsigned char, std::allocator<unsigned char> > >::parse()",
         "nlohmann::json::parse()"},
        {"std::__1::vector<bool, std::__1::allocator<bool>>", "std::vector<bool>"},
        {"fmt::v9::detail::buffer<char>::v9(v9::x)", "fmt::detail::buffer<char>::v9(v9::x)"},
        {"my::std::basic_string<char>", "my::std::basic_string<char>"},
        {"a::operator<(b<c>, d) and operator->() and operator>><e> ",
         "a::operator<(b<c>, d) and operator->() and operator>><e> "},
        {"std::function<auto (int) -> void>", "std::function<auto (int) -> void>"},
        {"<core::fmt::Arguments as core::fmt::Display>::fmt",
         "<core::fmt::Arguments as core::fmt::Display>::fmt"},
        {"cut<std::vector<int, std::allocator<int> >, ", "cut<std::vector<int, std::allocator<int> >, "},
        {std::string(5000, '<'), nullptr},
        {"", ""}};
    for (const auto& [whole, folded] : CASES)
        EXPECT_EQ(readable::name(whole), folded == nullptr ? whole : folded) << whole;
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

// Of a long course the rows with the highest and lowest sum and with the highest of each series stay, whole
// and in order, and their number is bounded.
TEST(Chart, ThinningKeepsTheExtremes) {
    constexpr std::size_t MOST = 16;
    const std::map<std::int64_t, std::pair<std::int64_t, std::int64_t>> extremes = {
        {1234, {1200, 1801}}, {4321, {1000, -50000}}, {5555, {1090, 1990}}, {8765, {900, 2101}}};
    RowThinner thinner(MOST);
    for (std::int64_t i = 0; i < 10000; ++i) {
        const std::int64_t noise = i * 7919 % 101;
        const auto found = extremes.find(i);
        const auto [first, second] =
            found != extremes.end() ? found->second : std::pair(1000 + noise, 2000 - noise + i % 3);
        thinner.add({static_cast<std::uint64_t>(i), 0, {first, second}});
    }
    const std::vector<ChartRow> rows = thinner.take();
    EXPECT_LE(rows.size(), MOST * 4);
    std::vector<std::uint64_t> indices;
    indices.reserve(rows.size());
    for (const ChartRow& row : rows) indices.push_back(row.index);
    EXPECT_TRUE(std::is_sorted(indices.begin(), indices.end()));
    EXPECT_THAT(indices, testing::IsSupersetOf({1234, 4321, 5555, 8765}));
}

// The largest first, what comes off behind them; a sentence for the large ones.
TEST(Resident, StepsAddUpFromTheLargestDown) {
    Scratch scratch;
    scratch.write("mem_tbb_resident.a.log", RESIDENT_HEAD + RESIDENT_ROWS + CLOSING);
    const auto folder = read_folders({{scratch.path()}, "", false});
    const Resident& resident = *folder->runs[0].resident;
    EXPECT_FALSE(resident.cgroup_limit);
    EXPECT_EQ(resident.address_space_limit, 9000);
    const std::vector<ResidentMoment> moments = resident_moments(resident);
    ASSERT_EQ(moments.size(), 1U);
    EXPECT_STREQ(moments[0].title, "at the end");
    std::vector<std::int64_t> bytes;
    for (const ResidentStep& step : resident_steps(*moments[0].point)) {
        bytes.push_back(step.bytes);
        EXPECT_EQ(step.advice.empty(), step.bytes < 100) << step.title;
    }
    EXPECT_THAT(bytes, testing::ElementsAre(500, 300, 200, 20, 5, 4, 3, 2, 1, -35));
    EXPECT_THAT(read_charts(folder->runs[0], 512).at(0).rows.at(0).values,
                testing::ElementsAre(479, 6, 2, 12, 401));
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
