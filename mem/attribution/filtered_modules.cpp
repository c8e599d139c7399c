#include "mem/attribution/filtered_modules.h"

#include <strings.h>

#include <algorithm>
#include <array>

namespace {

// The library itself, and the allocator in all its builds.
constexpr std::array<std::string_view, 3> beginnings = {"ktl_mem", "tbb", "tcmalloc"};
constexpr std::array<std::string_view, 3> names = {"db_xdb", "lzma", "iomp5"};

bool equals_ignoring_case(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

bool mem_module_name_is_filtered(std::string_view name) {
    return name.empty() ||
           std::ranges::any_of(beginnings, [name](auto beginning) { return name.starts_with(beginning); }) ||
           std::ranges::any_of(names, [name](auto other) { return equals_ignoring_case(name, other); });
}
