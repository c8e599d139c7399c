#include "tools/memview/units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "tools/common/display_text.h"
#include "tools/common/harmless.h"
#include "tools/reports/model.h"

namespace memview {
namespace {

constexpr std::array<const char*, 7> byte_units = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};

double unit_factor(std::string_view unit) {
    if (unit.empty() || unit == "B") return 1;
    const std::size_t power = std::string_view("KMGT").find(unit.front());
    const std::string_view rest = unit.substr(1);
    if (power == std::string_view::npos || (!rest.empty() && rest != "B" && rest != "iB")) return 0;
    return std::pow(1024.0, static_cast<double>(power + 1));
}

}  // namespace

std::string human_bytes(std::int64_t bytes) {
    double value = std::fabs(static_cast<double>(bytes));
    std::size_t unit = 0;
    while (value >= 1023.95 && unit + 1 < byte_units.size()) {
        value /= 1024;
        ++unit;
    }
    char text[48];
    std::snprintf(text, sizeof text, unit == 0 ? "%s%.0f %s" : "%s%.1f %s", bytes < 0 ? "-" : "", value,
                  byte_units.at(unit));
    return text;
}

std::string human_change(std::int64_t bytes) {
    return (bytes > 0 ? "+" : "") + human_bytes(bytes);
}

std::string grouped(std::int64_t number) {
    std::string digits = std::to_string(number);
    const std::size_t first = digits.front() == '-' ? 1 : 0;
    for (std::size_t at = digits.size(); at > first + 3; at -= 3) digits.insert(at - 3, 1, ',');
    return digits;
}

void append_number(std::string& out, std::int64_t number) {
    char text[24];
    out.append(text, std::to_chars(text, text + sizeof text, number).ptr);
}

void append_quoted(std::string& out, std::string_view text, std::string_view escaped) {
    out += '"';
    for (std::size_t quote = 0; (quote = text.find('"')) != std::string_view::npos;) {
        out.append(text.substr(0, quote)).append(escaped);
        text.remove_prefix(quote + 1);
    }
    out.append(text).append("\"");
}

std::string hex_address(std::int64_t address) {
    if (address == 0) return "OTHER";
    if (address == no_site) return "-";
    char text[24] = "0x";
    char* const end =
        std::to_chars(text + 2, text + sizeof text, static_cast<std::uint64_t>(address), 16).ptr;
    return {text, end};
}

std::string fixed_thousandths(std::int64_t value) {
    char text[32];
    const auto magnitude = static_cast<unsigned long long>(value < 0 ? -value : value);
    std::snprintf(text, sizeof text, "%s%llu.%03llu", value < 0 ? "-" : "", magnitude / 1000,
                  magnitude % 1000);
    return text;
}

Amount parse_amount(const std::string& text) {
    Amount amount;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, amount.value, std::chars_format::fixed);
    const std::string_view unit(stop, static_cast<std::size_t>(end - stop));
    amount.percent = unit == "%";
    const double factor = amount.percent ? 1 : unit_factor(unit);
    if (error != std::errc{} || factor == 0 || amount.value < 0 || !std::isfinite(amount.value)) {
        throw CLI::ValidationError(
            "\"" + text + "\" is no amount: give bytes (100), K, M, G or T (64K, 1.5G), or a share (10%)");
    }
    amount.value *= factor;
    if (amount.value >= 0x1p63)
        throw CLI::ValidationError("\"" + text + "\" is more than any report can hold");
    return amount;
}

std::string sparkline(const std::vector<std::int64_t>& course, std::size_t width) {
    static constexpr std::array<const char*, 8> bars = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    if (course.empty()) return {};
    const std::size_t cells = std::min(width, course.size());
    const std::int64_t highest = std::max<std::int64_t>(1, *std::max_element(course.begin(), course.end()));
    std::string line;
    for (std::size_t cell = 0; cell < cells; ++cell) {
        const auto from = course.begin() + static_cast<std::ptrdiff_t>(cell * course.size() / cells);
        const auto to = course.begin() + static_cast<std::ptrdiff_t>((cell + 1) * course.size() / cells);
        const double share = static_cast<double>(*std::max_element(from, to)) / static_cast<double>(highest);
        line += bars.at(static_cast<std::size_t>(std::lround(std::clamp(share, 0.0, 1.0) * 7)));
    }
    return line;
}

std::size_t display_width(std::string_view text) {
    return display::width(text);
}

std::string shortened(const std::string& text, std::size_t width) {
    if (display_width(text) <= width || width == 0) return text;
    return text.substr(0, display::bytes_within(text, width - 1)) + "…";
}

// Whole folders are dropped from the front, then characters.
std::string shortened_path(const std::string& path, std::size_t width) {
    if (display_width(path) <= width || width == 0) return path;
    const std::size_t tail = display::bytes_before_last(path, width - 1);
    const std::size_t slash = path.find('/', tail);
    return "…" + path.substr(slash == std::string::npos ? tail : slash);
}

std::string harmless(std::string_view text) {
    return ::harmless(text);
}

}  // namespace memview
