#include "mem/attribution/frame_filters.h"

#include <array>
#include <string_view>

#include "platform/module_name.h"
#include "platform/modules.h"

namespace {

// The executable's own module, which may happen to be called "c" and is not to be taken for the system's.
bool is_executable(std::string_view module) {
    static const std::array<char, 4096> path = [] {
        std::array<char, 4096> text{};
        GetModuleFileNameA(nullptr, text.data(), text.size());
        return text;
    }();
    return module == module_base_name(path.data());
}

// The platform's runtime and loader.
bool is_system_module(std::string_view module) {
    return mem_module_name_is_of_system(module) && !is_executable(module);
}

}  // namespace

bool mem_module_is_filtered(std::string_view module) {
    return mem_module_is_filtered_by_rule(module) || is_system_module(module);
}
