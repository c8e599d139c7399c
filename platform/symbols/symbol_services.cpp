#include "platform/symbol_services.h"

#include <atomic>
#include <mutex>

#include "platform/symbols/call_instruction.h"
#include "platform/symbols/module_list.h"
#include "platform/symbols/own_stack.h"
#include "platform/symbols/own_thread_data.h"
#include "platform/symbols/symbol_files.h"

namespace symbols {
namespace {

// Never destroyed: threads may ask while the process ends.
MODULE_LIST& modules() {
    static MODULE_LIST& list = *new MODULE_LIST;
    return list;
}

constinit std::atomic<const SYMBOL_FILES*> files{nullptr};

// What is known of a module's code, and the instruction in it.
struct CODE_PLACE {
    std::shared_ptr<CODE_DESCRIPTION> code;
    std::uint64_t instruction = 0;
};

// Without code where there is no module, or nobody who reads its files.
CODE_PLACE place_in(MODULE_ENTRY* entry, std::uint64_t address) {
    if (entry == nullptr) return {};
    CODE_PLACE place = {.code = entry->symbols(files.load(std::memory_order_acquire))};
    if (place.code != nullptr)
        place.instruction = place.code->instruction(locate({&address, 1}, entry->module()).front());
    return place;
}

std::vector<FRAME> frames_in(MODULE_ENTRY* entry, std::uint64_t address) {
    const CODE_PLACE place = place_in(entry, address);
    return place.code == nullptr ? std::vector<FRAME>() : place.code->find_frames(place.instruction);
}

}  // namespace

void open_files() {
    static std::once_flag once;
    std::call_once(once, [] {
        const SYMBOL_FILES* const opened = open_symbol_files();
        if (opened != nullptr) take_over_thread_data(opened->code_of_libraries);
        files.store(opened, std::memory_order_release);
    });
}

bool has_open_files() {
    return files.load(std::memory_order_acquire) != nullptr;
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
    run_on_own_stack([&] { frames = frames_in(modules().find(address, LISTING::CURRENT), address); });
    return frames;
}

std::vector<FRAME> find_frames(std::uint64_t address, const MODULE& module) {
    std::vector<FRAME> frames;
    run_on_own_stack([&] { frames = frames_in(modules().of(module), address); });
    return frames;
}

bool find_place(std::uint64_t address, PLACE& place) {
    bool is_found = false;
    run_on_own_stack([&] {
        const CODE_PLACE in = place_in(modules().find(address, LISTING::KNOWN), address);
        is_found = in.code != nullptr && in.code->find_place(in.instruction, place);
    });
    return is_found;
}

bool find_symbol(std::uint64_t address, SYMBOL& symbol) {
    bool is_found = false;
    run_on_own_stack([&] {
        MODULE_ENTRY* entry = modules().find(address, LISTING::KNOWN);
        const CODE_PLACE in = place_in(entry, address);
        is_found = in.code != nullptr && in.code->find_symbol(in.instruction, symbol);
        if (is_found) symbol.begin += entry->image().bias;
    });
    return is_found;
}

std::string readable_name(const std::string& linkage_name) {
    const SYMBOL_FILES* const readers = files.load(std::memory_order_acquire);
    if (readers == nullptr) return linkage_name;
    std::string name;
    run_on_own_stack([&] { name = readers->demangled(linkage_name.c_str()); });
    return name;
}

}  // namespace symbols
