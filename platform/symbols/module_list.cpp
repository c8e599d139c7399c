#include "platform/symbols/module_list.h"

#include <algorithm>

#include "platform/module_name.h"
#include "platform/modules.h"

namespace symbols {
namespace {

std::string executable_path() {
    char path[4096];
    const std::uint32_t length = GetModuleFileNameA(nullptr, path, sizeof path);
    return {path, length};
}

std::string path_of(const LOADED_IMAGE& image) {
    if (image.loader_name.empty()) return executable_path();
    if (image.loader_name.starts_with('/')) return image.loader_name;
    // Relative to a current directory that may have changed; or the kernel's own image, without a file.
    return mapped_file_at(image.begin);
}

MODULE describe(const LOADED_IMAGE& image, const std::string& path) {
    MODULE module{.begin = image.begin,
                  .end = image.end,
                  .bias = image.bias,
                  .name = {},
                  .path = path.empty() ? path_of(image) : path,
                  .build_id = image.build_id,
                  .is_executable = image.loader_name.empty()};
    module.name = module_base_name(image.loader_name.empty() ? module.path : image.loader_name);
    return module;
}

}  // namespace

MODULE_ENTRY::MODULE_ENTRY(LOADED_IMAGE loaded, const std::string& path)
    : loaded_image(std::move(loaded)), description(describe(loaded_image, path)) {}

std::shared_ptr<CODE_DESCRIPTION> MODULE_ENTRY::symbols(const SYMBOL_FILES* files) {
    // Asked again where nothing could be opened, as while the process has no descriptor left.
    if (files != nullptr && (known_symbols == nullptr || known_symbols->is_unread())) {
        if (description.path.empty()) description.path = path_of(loaded_image);
        const std::string path = loaded_image.loader_name.empty() ? executable_file() : description.path;
        known_symbols = files->read(path, loaded_image.build_id);
    }
    return known_symbols;
}

void MODULE_ENTRY::share_symbols_of(const MODULE_ENTRY& other) {
    const bool is_same_build = !loaded_image.build_id.empty() &&
                               loaded_image.build_id == other.loaded_image.build_id &&
                               description.path == other.description.path;
    if (is_same_build) known_symbols = other.known_symbols;
}

// What is loaded now goes behind all others: once it is unloaded, it was the last at its addresses.
template <class CONDITION>
MODULE_ENTRY* MODULE_LIST::find_loaded(CONDITION is_wanted) {
    const auto at =
        std::ranges::find_if(entries, [&](const auto& entry) { return is_wanted(entry->image()); });
    if (at == entries.end()) return nullptr;
    std::rotate(at, at + 1, entries.end());
    return entries.back().get();
}

MODULE_ENTRY* MODULE_LIST::find_unchanged(std::uint64_t address) {
    return find_loaded([address](const LOADED_IMAGE& image) {
        return address >= image.begin && address < image.end && still_holds(image, address);
    });
}

MODULE_ENTRY* MODULE_LIST::find(std::uint64_t address, LISTING listing) {
    MODULE_ENTRY* unchanged = find_unchanged(address);
    if (unchanged != nullptr) return unchanged;
    const std::optional<LOADED_IMAGE> image = loaded_image_at(address);
    if (!image) {
        const auto at = std::find_if(entries.rbegin(), entries.rend(), [address](const auto& entry) {
            return address >= entry->module().begin && address < entry->module().end;
        });
        return at == entries.rend() ? nullptr : at->get();
    }
    MODULE_ENTRY* known = find_loaded([&image](const LOADED_IMAGE& seen) { return seen == *image; });
    return known != nullptr || listing == LISTING::KNOWN ? known : &add(*image, {});
}

MODULE_ENTRY& MODULE_LIST::of(const LOADED_IMAGE& image, const std::string& path) {
    const auto at = std::ranges::find_if(entries, [&](const auto& entry) { return entry->image() == image; });
    return at != entries.end() ? **at : add(image, path);
}

MODULE_ENTRY* MODULE_LIST::of(const MODULE& module) {
    const auto at =
        std::ranges::find_if(entries, [&](const auto& entry) { return &entry->module() == &module; });
    return at != entries.end() ? at->get() : nullptr;
}

MODULE_ENTRY& MODULE_LIST::add(const LOADED_IMAGE& image, const std::string& path) {
    // A plug-in that comes back, as a rule at another place, must not have its files read once more.
    auto added = std::make_unique<MODULE_ENTRY>(image, path);
    for (const auto& entry : entries) added->share_symbols_of(*entry);
    return *entries.emplace_back(std::move(added));
}

void MODULE_LIST::refresh() {
    for_each_code_mapping([this](std::uint64_t address) { find(address, LISTING::CURRENT); });
}

}  // namespace symbols
