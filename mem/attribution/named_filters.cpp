// The rules that go by names alone, for tools, too.
#include <algorithm>
#include <array>
#include <string_view>

#include "mem/attribution/filtered_modules.h"
#include "mem/attribution/frame_filters.h"

std::vector<std::string> mem_filter_modules;
std::vector<std::string> mem_filter_functions;
std::vector<std::string> mem_filter_file_basenames;

namespace {

// The last is where the C++ runtime of this platform keeps its own parts of the standard library.
constexpr std::array<std::string_view, 9> filtered_functions = {
    "std::", "mem_", "MEM_", "operator new", "VTL", "boost::", "tbb::", "mtl::", "__gnu_cxx::"};
// Where their headers lie, for names that lack what their functions are members of.
constexpr std::array<std::string_view, 3> filtered_folders = {"/c++/", "/boost/", "/tbb/"};
constexpr std::array<std::string_view, 2> filtered_basenames = {"xdb_", "mem_"};
constexpr std::array<std::string_view, 3> filtered_files = {"my_utils.cpp", "plr_mem_interface.cpp",
                                                            "tbb_concurrent_hash_map_sys.h"};
constexpr std::array<std::string_view, 5> system_modules = {"c", "stdc++", "gcc_s", "ld-linux-x86-64",
                                                            "linux-vdso"};

// Where the C library has functions that are inlined into the program, such as getline.
constexpr std::array<std::string_view, 2> header_folders = {"/usr/include/x86_64-linux-gnu/bits/",
                                                            "/usr/include/bits/"};

bool begins_with_any(std::string_view text, const auto& prefixes) {
    return std::ranges::any_of(prefixes,
                               [text](std::string_view prefix) { return text.starts_with(prefix); });
}

// With line tables alone as debug information, some compilers give inlined functions their bare names.
bool is_bare_name_of_library(std::string_view function, std::string_view path) {
    const std::string_view without_arguments = function.substr(0, function.find('<'));
    if (without_arguments.find("::") != std::string_view::npos) return false;
    if (function.ends_with(')') && function != "operator()") return false;
    const std::size_t headers = path.rfind("/include/");
    return headers != std::string_view::npos &&
           std::ranges::any_of(filtered_folders, [path, headers](std::string_view folder) {
               return path.find(folder, headers) != std::string_view::npos;
           });
}

}  // namespace

bool mem_module_name_is_of_system(std::string_view name) {
    return std::ranges::find(system_modules, name) != system_modules.end();
}

bool mem_module_is_filtered_by_rule(std::string_view name) {
    return mem_module_name_is_filtered(name) || begins_with_any(name, mem_filter_modules);
}

bool mem_frame_is_filtered(std::string_view path, std::string_view name) {
    if (path.empty() || name.empty()) return true;
    if (begins_with_any(name, filtered_functions) || begins_with_any(name, mem_filter_functions)) return true;
    if (is_bare_name_of_library(name, path) || begins_with_any(path, header_folders)) return true;
    const std::size_t separator = path.find_last_of("/\\");
    if (separator == std::string_view::npos) return false;
    const std::string_view base = path.substr(separator + 1);
    return begins_with_any(base, filtered_basenames) ||
           std::ranges::find(filtered_files, base) != filtered_files.end() ||
           begins_with_any(base, mem_filter_file_basenames);
}
