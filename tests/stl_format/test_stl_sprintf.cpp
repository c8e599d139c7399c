// stl_vsprintf, stl_raw_sprintf and the case changes.
#include <gtest/gtest.h>

#include "ktl_mem/format.h"

namespace {

TEST(StlRawSprintf, ReplacesTheContentByTextOfAnyLength) {
    for (int length : {0, 1, 8190, 8191, 8192, 8193, 100000}) {
        std::string text = "old";
        MEM_DETAIL::stl_raw_sprintf(&text, "%*s", length, "");
        EXPECT_EQ(text, std::string(static_cast<std::size_t>(length), ' '));
    }
    std::string text = "old";
    MEM_DETAIL::stl_raw_sprintf(&text, "%.3e %s", 1234.5, text.c_str());
    EXPECT_EQ(text, "1.234e+03 old");
}

TEST(StlRawSprintf, KeepsTheContentWhenItCannotFormat) {
    std::string text = "old";
    MEM_DETAIL::stl_raw_sprintf(&text, "%lc", 0x7fffffff);
    MEM_DETAIL::stl_raw_sprintf(&text, nullptr);
    MEM_DETAIL::stl_raw_sprintf(nullptr, "text");
    EXPECT_EQ(text, "old");
}

TEST(StlCase, ChangesTheLettersOnly) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
    std::string lower = all, upper = all;
    EXPECT_EQ(&stl_tolower(lower), &lower);
    EXPECT_EQ(&stl_toupper(upper), &upper);
    for (std::size_t i = 0; i < 256; ++i) {
        EXPECT_EQ(lower[i], i >= 'A' && i <= 'Z' ? all[i + 32] : all[i]);
        EXPECT_EQ(upper[i], i >= 'a' && i <= 'z' ? all[i - 32] : all[i]);
    }
}

}  // namespace
