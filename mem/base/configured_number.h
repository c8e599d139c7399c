// Numbers from the configuration.
#pragma once

#include <optional>
#include <string>

// The number that `text` begins with, as std::stoull and std::stoi convert it: leading white space and
// trailing text are accepted. No value when there are no digits or it does not fit; then one debug line
// names key, value and what stays in force.
std::optional<unsigned long long> mem_parse_configured_unsigned(const char* key, const std::string& text);
std::optional<int> mem_parse_configured_int(const char* key, const std::string& text, int base);
