#include "mem/report/call_path_names.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "mem/attribution/call_sites.h"
#include "mem/attribution/code_names.h"
#include "mem/attribution/frame_filters.h"
#include "mem/attribution/symbolizer.h"
#include "mem/paths/call_paths.h"

namespace {

std::string_view name_of(const symbols::MODULE* module) {
    return module != nullptr ? std::string_view(module->name) : std::string_view();
}

// What the verdict of a module is, of one frame after the other.
class MODULE_VERDICT {
  public:
    bool of(const symbols::MODULE* module) {
        if (latest != module) is_filtered = mem_module_is_filtered(name_of(module));
        latest = module;
        return is_filtered;
    }

  private:
    std::optional<const symbols::MODULE*> latest;
    bool is_filtered = false;
};

MEM_PATH_LEVEL level_of(const symbols::MODULE* module, bool is_innermost, const symbols::LEVEL& named) {
    MEM_PATH_LEVEL level{name_of(module), named.file, named.function, named.line};
    if (mem_tbb_incomplete_fileline && is_innermost && level.file.empty()) level.file = "Unknown";
    level.is_filtered = mem_frame_is_filtered(level.file, level.function);
    return level;
}

const symbols::MODULE* find_module(std::uint16_t load) {
    return symbols::find_module(mem_tbb_call_paths->image(load),
                                mem_tbb_call_paths->region().load(load).path);
}

// Of each load, which may lie where another one lies by now.
std::vector<const symbols::MODULE*> modules_of(const std::vector<MEM_PATH_FRAME>& frames) {
    std::map<std::uint16_t, const symbols::MODULE*> by_load{{0, nullptr}};
    std::vector<const symbols::MODULE*> modules;
    const std::lock_guard guard(mem_tbb_symbolizer_lock);
    for (const MEM_PATH_FRAME& frame : frames) {
        const auto [known, is_new] = by_load.try_emplace(frame.load);
        if (is_new) known->second = find_module(frame.load);
        modules.push_back(known->second);
    }
    return modules;
}

}  // namespace

void mem_name_path_frames(const std::vector<MEM_PATH_FRAME>& frames, const MEM_PATH_LEVEL_TAKER& take) {
    std::vector<std::uint64_t> pcs;
    pcs.reserve(frames.size());
    for (const MEM_PATH_FRAME& frame : frames) pcs.push_back(frame.pc);
    const std::vector<const symbols::MODULE*> modules = modules_of(frames);
    MEM_CODE_NAMES names(std::move(pcs), modules);
    MODULE_VERDICT verdict;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const bool is_filtered = verdict.of(modules[i]);
        const std::size_t known = names.level_count(i);
        for (std::size_t number = 0; number < std::max<std::size_t>(known, 1); ++number) {
            const symbols::LEVEL named = number < known ? names.level(i, number) : symbols::LEVEL{};
            MEM_PATH_LEVEL level = level_of(modules[i], number == 0, named);
            level.is_filtered = level.is_filtered || is_filtered;
            take(i, number, level);
        }
    }
}
