#include "mem/report/call_path_names.h"

#include <map>
#include <mutex>
#include <utility>

#include "mem/attribution/call_sites.h"
#include "mem/attribution/code_names.h"
#include "mem/attribution/frame_filters.h"
#include "mem/attribution/symbolizer.h"
#include "mem/paths/call_paths.h"

namespace {

std::vector<MEM_PATH_LEVEL> levels_of(MEM_NAMED_CODE code) {
    if (code.levels.empty()) code.levels.emplace_back();
    if (mem_tbb_incomplete_fileline && code.levels[0].file.empty()) code.levels[0].file = "Unknown";
    std::vector<MEM_PATH_LEVEL> levels;
    for (const symbols::FRAME& frame : code.levels) {
        MEM_PATH_LEVEL& level = levels.emplace_back();
        level = {code.module, frame.file, frame.function, frame.line, false};
        level.is_filtered = mem_module_is_filtered(code.module.c_str()) ||
                            mem_frame_is_filtered(frame.file.c_str(), frame.function.c_str());
    }
    return levels;
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

std::vector<std::vector<MEM_PATH_LEVEL>> mem_name_path_frames(const std::vector<MEM_PATH_FRAME>& frames) {
    std::vector<std::uint64_t> pcs;
    pcs.reserve(frames.size());
    for (const MEM_PATH_FRAME& frame : frames) pcs.push_back(frame.pc);
    std::vector<std::vector<MEM_PATH_LEVEL>> named;
    named.reserve(frames.size());
    for (MEM_NAMED_CODE& code : mem_name_code(pcs, modules_of(frames)))
        named.push_back(levels_of(std::move(code)));
    return named;
}
