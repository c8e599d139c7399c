// stl_output against texts worked out by hand.
#include <gmock/gmock.h>

#include <array>
#include <cfloat>
#include <climits>
#include <cmath>

#include "formatted.h"

namespace {

using namespace std::string_literals;

void expect_all(const std::vector<std::pair<std::string, std::string>>& cases) {
    for (const auto& [actual, expected] : cases) EXPECT_EQ(actual, expected);
}

std::string repeated(int count, char character, const char* end = "") {
    return std::string(static_cast<std::size_t>(count), character) + end;
}

// Each way into a state, each class of character behind it, and then "d|": the text tells the next state.
TEST(StlOutput, EveryClassOfCharacterInEveryState) {
    const char* const into_state[] = {"", "%", "%-", "%5", "%.", "%.3", "%l", "%d"};
    const std::pair<char, std::array<std::string, 8>> rows[] = {
        {'!', {"!d|", "!d|", "!d|", "!d|", "!d|", "!d|", "!d|", "7!d|"}},
        {'%', {"7|", "%d|", "%d|", "%d|", "%d|", "%d|", "%d|", "77|"}},
        {'.', {".d|", "7|", "7|", "    7|", ".d|", ".d|", ".d|", "7.d|"}},
        {'*', {"*d|", "      7|", "7      |", "*d|", "0000007|", "*d|", "*d|", "7*d|"}},
        {'0', {"0d|", "7|", "7|", repeated(49, ' ', "7|"), "7|", repeated(29, '0', "7|"), "0d|", "70d|"}},
        {'4',
         {"4d|", "   7|", "7   |", repeated(53, ' ', "7|"), "0007|", repeated(33, '0', "7|"), "4d|", "74d|"}},
        {'+', {"+d|", "+7|", "+7|", "+d|", "+d|", "+d|", "+d|", "7+d|"}},
        {'h', {"hd|", "7|", "7|", "    7|", "7|", "007|", "7|", "7hd|"}},
        {'u', {"ud|", "7d|", "7d|", "    7d|", "7d|", "007d|", "7d|", "7ud|"}},
    };
    for (const auto& [character, texts] : rows)
        for (std::size_t state = 0; state < 8; ++state) {
            const std::string format = into_state[state] + std::string(1, character) + "d|";
            EXPECT_EQ(formatted(format.c_str(), 7, 7, 7), texts[state]) << format;
        }
}

TEST(StlOutput, AnyOtherCharacterEndsAConversionAndIsWritten) {
    const std::string part_of_a_conversion = " #+-.*0123456789FILNhlwBCEGSXZcdefginopsux";
    for (int code = 1; code < 256; ++code) {
        std::string other(1, static_cast<char>(code));
        if (part_of_a_conversion.find(other) != std::string::npos) continue;
        EXPECT_EQ(formatted(("%-12.3l" + other + "d").c_str(), 7), other + "d");
    }
}

TEST(StlOutput, Integers) {
    expect_all({
        {formatted("%*d|%*d|%.*d|%0*.*d|", 4, 1, -4, 1, 3, 1, 4, -1, 1), "   1|1   |001|0001|"},
        {formatted("%d %i %u", INT_MIN, INT_MAX, UINT_MAX), "-2147483648 2147483647 4294967295"},
        {formatted("%lld %I64d", LLONG_MIN, LLONG_MAX), "-9223372036854775808 9223372036854775807"},
        {formatted("%hd %hu %hhd %hx", 0x18000, 0x18000, 0x1ff, -1), "-32768 32768 511 ffff"},
        {formatted("%hld %hllu %FLNd", 0x18000L, ~0ULL, 5), "98304 18446744073709551615 5"},
        {formatted("%p|%#p|%.3p|%020p", (void*)0xab12, (void*)0xab12, (void*)nullptr, (void*)1),
         "000000000000AB12|0X000000000000AB12|0000000000000000|    0000000000000001"},
        {formatted("%.600d", -1), "-" + repeated(599, '0', "1")},
        {formatted("%I32d|%Id|%I6d", 1), "I32d|Id|I6d"},
        {formatted("%jd %zd %td %a %A %y"), "jd zd td a A y"},
        {formatted("100%% %"), "100% "},
        {formatted("%-08.3l"), ""},
        {formatted("%B|%5B|%-3B|%d", 4), "|     |   |4"},
    });
}

TEST(StlOutput, Floats) {
    const std::string max = formatted("%.0f", DBL_MAX);
    EXPECT_EQ(max.size(), 310u);
    EXPECT_EQ(max.substr(0, 20), "17976931348623157081");
    expect_all({
        {formatted("%f %f %f", 12.0, 0.0, -0.0), "12.000000 0.000000 -0.000000"},
        {formatted("%.0f %.f %#.0f %.0f", 12.0, 0.4, 0.6, 0.04), "12. 0. 1. 0."},
        {formatted("%.0f %.0f %.2f %.1f", 0.5, 1.5, 2.675, 0.96), "0. 2. 2.67 1.0"},
        {formatted("%.2e %.2E %g %G %.0g %.0G", 1234.5, 1234.5, 0.1, 100.0, 3.0, 3.0),
         "1234.50 1234.50 0.100000 100.000000 3.0 3."},
        {formatted("%f|%.322f", 1e-320, 1e-320), "0.000000|0." + repeated(319, '0', "100")},
        // The buffer holds 512 characters, the sign's place among them.
        {formatted("%.600f|%.*f", 1.0, INT_MAX, -1.0),
         "1." + repeated(510, '0', "|-1.") + repeated(509, '0')},
        {formatted("%.511f", 1e-320), "0." + repeated(319, '0') + formatted("%.510f", 1e-320).substr(321)},
        {formatted("%f %f %+.2f %G", INFINITY, -INFINITY, INFINITY, (double)NAN), "inf -inf +inf nan"},
        {formatted("%6f|%06f|%-6f|%06f", INFINITY, -INFINITY, INFINITY, std::copysign(NAN, -1)),
         "   inf|  -inf|inf   |  -nan"},
    });
}

TEST(StlOutput, Text) {
    const char unterminated[] = {'a', 'b', 'c'};
    const wchar_t wide_unterminated[] = {L'x', L'y'};
    const STL_COUNTED_STRING counted{3, 3, unterminated};
    const STL_COUNTED_STRING counted_wide{11, 12, reinterpret_cast<const char*>(wide_unterminated)};
    const STL_COUNTED_STRING empty{3, 3, nullptr};
    const char* null = nullptr;
    expect_all({
        {formatted("%s|%5s|%-5s|%05s|%.2s|%.0s|%.3s", "abc", "abc", "abc", "abc", "abc", "abc", unterminated),
         "abc|  abc|abc  |00abc|ab||abc"},
        {formatted("%s|%.3s|%8s|%ls|%.3S", null, null, null, null, null), "(null)|(nu|  (null)|(null)|(nu"},
        {formatted("%ls|%ws|%S|%5S|%.2S|%hS|%hhs|%lhS", L"ab", L"ab", L"ab", L"ab", L"abc", "n", "n", L"w"),
         "ab|ab|ab|   ab|ab|n|n|w"},
        {formatted("%.2ls|%lls", wide_unterminated, "narrow"), "xy|narrow"},
        // Not in the C locale: text ends there, its fill does not; a character goes with its fill.
        {formatted("<%5ls>", L"a\x20acz"), "<  a>"},
        {formatted("<%5lc><%-3wc><%C><%hC><%3lc>", 0x20ac, L'a', L'b', 'c', L'd'), "<><a  ><b><c><  d>"},
        {formatted("%c%c|%3c|%-3c|%c", 0x141, 0, 'b', 'c', 'd'), "A\0|  b|c  |d"s},
        {formatted("%Z|%5Z|%.1Z|%wZ|%lZ", &counted, &counted, &counted, &counted_wide, &counted),
         "abc|  abc|abc|xy|abc"},
        {formatted("%Z|%.2wZ|%9Z", null, &empty, &empty), "(null)|(null)|   (null)"},
    });
}

TEST(StlOutput, StoresTheCountSoFar) {
    int count[2] = {-1, -1}, long_count[2] = {-1, -1};
    short narrow[2] = {-1, -1};
    EXPECT_EQ(formatted("%70000d%n%hn%9hln|%n", 1, &count, &narrow, &long_count, (int*)nullptr),
              repeated(69999, ' ', "1|"));
    EXPECT_THAT(count, testing::ElementsAre(70000, -1));
    EXPECT_THAT(narrow, testing::ElementsAre(static_cast<short>(70000), -1));
    EXPECT_THAT(long_count, testing::ElementsAre(70000, -1));
}

int append_and_read_on(std::string* text, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int count = stl_output(text, format, args);
    EXPECT_EQ(va_arg(args, int), 77);
    EXPECT_EQ(va_arg(args, double), 2.5);
    EXPECT_EQ(stl_output(text, "%s", args), 4);
    va_end(args);
    return count;
}

TEST(StlOutput, AppendsCountsAndAdvancesTheCallersList) {
    std::string text = "kept ";
    EXPECT_EQ(append_and_read_on(&text, "%600s%%%hd%f%*c", "x", 3, 1.0, 2, 'c', 77, 2.5, "next"), 612);
    EXPECT_EQ(text, "kept " + repeated(599, ' ', "x%31.000000 cnext"));
    va_list unused{};
    EXPECT_EQ(stl_output(nullptr, "x", unused), 0);
    EXPECT_EQ(stl_output(&text, nullptr, unused), 0);
}

}  // namespace
