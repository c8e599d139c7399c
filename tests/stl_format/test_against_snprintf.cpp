// stl_output and snprintf must agree wherever their conversions mean the same, on generated formats.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cwchar>
#include <random>

#include "formatted.h"

namespace {

constexpr int formats = 400'000;

class GENERATOR {
  public:
    // One conversion and its argument, in a format with text around it.
    template <class CHECK>
    void next(CHECK check) {
        const char types[] = "diuoxXcsf";
        char type = types[below(9)];
        std::string size = std::string("diuoxX").find(type) != std::string::npos ? sizes[below(4)] : "";
        if ((type == 'c' || type == 's') && below(3) == 0) size = "l";
        format =
            words[below(4)] + ("%" + flags(type) + width() + precision(type) + size) + type + words[below(4)];
        if (type == 'c')
            check(size.empty() ? int(below(256)) : int(1 + below(127)));
        else if (type == 's')
            size.empty() ? check(narrow[below(4)]) : check(wide[below(4)]);
        else if (type == 'f')
            check(number());
        else if (size[0] == 'l')
            check(static_cast<long long>(integer()));
        else
            check(static_cast<int>(integer()));
    }
    std::string format;

  private:
    std::uint64_t below(std::uint64_t end) { return random() % end; }
    // Only those that the C standard defines for the type.
    std::string flags(char type) {
        std::string set = "-";
        if (type != 'c' && type != 's') set += "+ 0";
        if (std::string("oxX").find(type) != std::string::npos) set += "#";
        std::string chosen = type == 'f' ? "#" : "";
        for (char flag : set)
            if (below(3) == 0) chosen += flag;
        return chosen;
    }
    std::string width() { return below(2) == 0 ? "" : std::to_string(1 + below(below(50) == 0 ? 1500 : 30)); }
    std::string precision(char type) {
        if (type == 'c' || below(2) == 0) return "";
        return "." + std::to_string(below(below(20) == 0 ? 190 : 20));
    }
    std::uint64_t integer() { return random() >> below(64) << (below(8) == 0 ? 63 : 0); }
    double number() {
        double value = std::ldexp(static_cast<double>(random()) / 1e19, static_cast<int>(below(2090)) - 1072);
        if (below(4) == 0) value = static_cast<double>(below(2'000'000)) / 1000 - 1000;
        if (!std::isfinite(value) || below(40) == 0) return 0;
        return below(2) == 0 ? value : -value;
    }

    std::mt19937_64 random{20090};
    const char* sizes[4] = {"", "h", "l", "ll"};
    const char* words[4] = {"", "a", "before ", "%%"};
    const char* narrow[4] = {"", "text", "100%", "longer text with \xff bytes of any kind"};
    const wchar_t* wide[4] = {L"", L"w", L"wide text", L"(%ls)"};
};

TEST(StlOutput, AgreesWithSnprintfOnTheCommonConversions) {
    GENERATOR generator;
    for (int i = 0; i < formats && !HasFatalFailure(); ++i)
        generator.next([&](auto argument) {
            const char* const format = generator.format.c_str();
            char expected[4096];
            const int length = std::snprintf(expected, sizeof(expected), format, argument);
            ASSERT_GE(length, 0) << format;
            ASSERT_EQ(formatted(format, argument), std::string(expected, length)) << format;
        });
}

}  // namespace
