#include "mem/attribution/code_names.h"

#include <cstdio>
#include <map>
#include <mutex>

#include "mem/attribution/symbolizer.h"
#include "mem/base/scarcity.h"
#include "platform/symbols/asked_names.h"

constinit MEM_PLAIN_WORD<bool> mem_tbb_best_names;

namespace {

// What the files of a module's debug information may take.
constexpr std::size_t largest_naming = std::size_t{16} << 20;

// Modules live as long as the process.
using MODULES = std::vector<const symbols::MODULE*>;

MODULES find_modules(const std::vector<std::uint64_t>& pcs) {
    MODULES modules;
    modules.reserve(pcs.size());
    const std::lock_guard guard(mem_tbb_symbolizer_lock);
    for (const std::uint64_t pc : pcs) modules.push_back(symbols::find_module(pc, symbols::LISTING::CURRENT));
    return modules;
}

// The addresses by module, so that each is named once in what goes to the other process.
class QUESTIONS {
  public:
    QUESTIONS(const std::vector<std::uint64_t>& pcs, const MODULES& modules) {
        for (std::size_t i = 0; i < pcs.size(); ++i)
            if (modules[i] != nullptr) by_module[modules[i]].push_back(i);
        for (const auto& [module, numbers] : by_module) {
            symbols::NAME_QUESTION& question = all.emplace_back();
            std::vector<std::uint64_t> asked;
            asked.reserve(numbers.size());
            for (const std::size_t i : numbers) asked.push_back(pcs[i]);
            question = {module->path, module->build_id, module->is_executable,
                        symbols::locate(asked, *module)};
        }
    }

    bool ask(std::vector<MEM_NAMED_CODE>& named) const {
        std::vector<std::vector<symbols::FRAME>> answers;
        if (!symbols::ask(all, answers)) return false;
        std::size_t at = 0;
        for (const auto& [module, numbers] : by_module)
            for (const std::size_t i : numbers) named[i].levels = std::move(answers[at++]);
        return true;
    }

  private:
    std::map<const symbols::MODULE*, std::vector<std::size_t>> by_module;
    std::vector<symbols::NAME_QUESTION> all;
};

std::string with_distance(const std::string& name, std::uint64_t distance) {
    char text[24];
    std::snprintf(text, sizeof text, "+0x%llx", static_cast<unsigned long long>(distance));
    return name + text;
}

void complete(std::uint64_t pc, const symbols::MODULE& module, std::vector<symbols::FRAME>& levels) {
    if (levels.empty()) levels.emplace_back();
    for (symbols::FRAME& level : levels) {
        if (level.function.empty())
            level.function = with_distance(module.name, pc - module.bias);
        else if (level.offset)
            level.function = with_distance(level.function, *level.offset);
    }
}

}  // namespace

bool mem_has_room_for_naming() {
    return symbols::can_ask() || mem_has_room_for(largest_naming);
}

std::vector<MEM_NAMED_CODE> mem_name_code(const std::vector<std::uint64_t>& pcs) {
    return mem_name_code(pcs, find_modules(pcs));
}

std::vector<MEM_NAMED_CODE> mem_name_code(const std::vector<std::uint64_t>& pcs, const MODULES& modules) {
    std::vector<MEM_NAMED_CODE> named(pcs.size());
    if (!symbols::can_ask() || !QUESTIONS(pcs, modules).ask(named)) {
        const std::lock_guard guard(mem_tbb_symbolizer_lock);
        for (std::size_t i = 0; i < pcs.size(); ++i)
            if (modules[i] != nullptr) named[i].levels = symbols::find_frames(pcs[i], *modules[i]);
    }
    for (std::size_t i = 0; i < pcs.size(); ++i) {
        if (modules[i] == nullptr) continue;
        named[i].module = modules[i]->name;
        if (mem_tbb_best_names) complete(pcs[i], *modules[i], named[i].levels);
    }
    return named;
}
