#include "platform/module_name.h"

namespace {

// Where the ".so" begins that ends the name or stands before a version; npos when there is none. A ".so" in
// the middle of a longer word ("my.sofa") is no mark of a shared object.
std::size_t shared_object_mark(std::string_view name) {
    constexpr std::string_view mark = ".so";
    for (std::size_t at = name.find(mark); at != std::string_view::npos; at = name.find(mark, at + 1)) {
        const std::size_t behind = at + mark.size();
        if (behind == name.size() || name[behind] == '.') return at;
    }
    return std::string_view::npos;
}

}  // namespace

std::string_view module_base_name(std::string_view path) {
    std::string_view name = path.substr(path.rfind('/') + 1);
    const std::size_t mark = shared_object_mark(name);
    if (mark != std::string_view::npos) {
        name = name.substr(0, mark);
        if (name.starts_with("lib")) name.remove_prefix(3);
        return name;
    }
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}
