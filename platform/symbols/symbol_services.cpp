#include "platform/symbol_services.h"

#include "platform/symbols/call_instruction.h"
#include "platform/symbols/function_names.h"
#include "platform/symbols/module_list.h"
#include "platform/symbols/own_stack.h"
#include "platform/symbols/own_thread_data.h"

namespace symbols {
namespace {

// Never destroyed: threads may ask while the process ends.
MODULE_LIST& modules() {
    static MODULE_LIST& list = *new MODULE_LIST;
    return list;
}

}  // namespace

void detach_from_loader() {
    take_over_thread_data();
}

const MODULE* find_module(std::uint64_t address, LISTING listing) {
    const MODULE_ENTRY* entry = modules().find_unchanged(address);
    if (entry == nullptr) run_on_own_stack([&] { entry = modules().find(address, listing); });
    return entry == nullptr ? nullptr : &entry->module();
}

const MODULE* find_module(const LOADED_IMAGE& image, const std::string& path) {
    return &modules().of(image, path).module();
}

void refresh_modules() {
    run_on_own_stack([] { modules().refresh(); });
}

std::vector<CODE_ADDRESS> locate(std::span<const std::uint64_t> addresses, const MODULE& module) {
    const std::vector<bool> are_calls = are_behind_calls(addresses, module.begin, module.end);
    std::vector<CODE_ADDRESS> located;
    located.reserve(addresses.size());
    for (std::size_t i = 0; i < addresses.size(); ++i)
        located.push_back({addresses[i] - module.bias, are_calls[i]});
    return located;
}

std::vector<FRAME> find_frames(std::uint64_t address) {
    std::vector<FRAME> frames;
    run_on_own_stack([&] {
        MODULE_ENTRY* entry = modules().find(address, LISTING::CURRENT);
        if (entry != nullptr) frames = entry->symbols()->find_frames(entry->instruction(address));
    });
    return frames;
}

std::vector<FRAME> find_frames(std::uint64_t address, const MODULE& module) {
    std::vector<FRAME> frames;
    run_on_own_stack([&] {
        MODULE_ENTRY* entry = modules().of(module);
        if (entry != nullptr) frames = entry->symbols()->find_frames(entry->instruction(address));
    });
    return frames;
}

bool find_place(std::uint64_t address, PLACE& place) {
    bool is_found = false;
    run_on_own_stack([&] {
        MODULE_ENTRY* entry = modules().find(address, LISTING::KNOWN);
        is_found = entry != nullptr && entry->symbols()->find_place(entry->instruction(address), place);
    });
    return is_found;
}

bool find_symbol(std::uint64_t address, SYMBOL& symbol) {
    bool is_found = false;
    run_on_own_stack([&] {
        MODULE_ENTRY* entry = modules().find(address, LISTING::KNOWN);
        is_found = entry != nullptr && entry->symbols()->find_symbol(entry->instruction(address), symbol);
        if (is_found) symbol.begin += entry->image().bias;
    });
    return is_found;
}

std::string readable_name(const std::string& linkage_name) {
    std::string name;
    run_on_own_stack([&] { name = demangled(linkage_name.c_str()); });
    return name;
}

}  // namespace symbols
