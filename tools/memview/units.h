#pragma once

// Figures as people read and write them.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/memview/options.h"

namespace memview {

// "512 B", "1.4 MiB"; with a sign when below 0.
std::string human_bytes(std::int64_t bytes);
// The same with a plus where it grew.
std::string human_change(std::int64_t bytes);
// "12,345,678"
std::string grouped(std::int64_t number);
// Plain digits behind what is there.
void append_number(std::string& out, std::int64_t number);
// The text between double quotes, with `escaped` in the place of each quote in it.
void append_quoted(std::string& out, std::string_view text, std::string_view escaped);
// "0x...", OTHER for 0, and "-" for no_site.
std::string hex_address(std::int64_t address);
// Thousandths as "1.500".
std::string fixed_thousandths(std::int64_t value);

// "64K", "1.5G", "100", "10%". Throws CLI::ValidationError, which names the text and the remedy.
Amount parse_amount(const std::string& text);

// The course of a series in block characters, `width` of them at most.
std::string sparkline(const std::vector<std::int64_t>& course, std::size_t width);

// Shortened to `width` columns of the terminal. A path keeps its end, other text its start.
std::string shortened(const std::string& text, std::size_t width);
std::string shortened_path(const std::string& path, std::size_t width);
// Columns that a text takes.
std::size_t display_width(std::string_view text);
// Text from a report with nothing in it that a terminal would obey.
std::string harmless(std::string_view text);

}  // namespace memview
