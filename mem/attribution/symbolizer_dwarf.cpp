#include <mutex>

#include "mem/attribution/code_names.h"
#include "mem/attribution/frame_text.h"
#include "mem/attribution/symbolizer.h"
#include "platform/symbol_services.h"

namespace {

void fill(MEM_STACK_FRAME& frame, const symbols::FRAME& level) {
    mem_set_frame_text(frame.file, level.file);
    mem_set_frame_text(frame.function, level.function);
    frame.line = level.line;
}

}  // namespace

MEM_SYMBOLIZER_DWARF* MEM_SYMBOLIZER_DWARF::get_instance() {
    static MEM_SYMBOLIZER_DWARF& instance = *new MEM_SYMBOLIZER_DWARF;
    return &instance;
}

bool MEM_SYMBOLIZER_DWARF::get_module_name(std::uint64_t pc, MEM_STACK_FRAME& frame) {
    frame.pc = pc;
    const std::lock_guard guard(mem_tbb_symbolizer_lock);
    const symbols::MODULE* module = symbols::find_module(pc, symbols::LISTING::CURRENT);
    if (module != nullptr) mem_set_frame_text(frame.module, module->name);
    return true;
}

bool MEM_SYMBOLIZER_DWARF::get_stack_frames(std::uint64_t pc, MEM_STACK_FRAME& frame,
                                            std::vector<MEM_STACK_FRAME>& further_frames) {
    frame.pc = pc;
    further_frames.clear();
    const std::vector<symbols::FRAME> levels = std::move(mem_name_code({pc}).front().levels);
    if (levels.empty()) return true;
    fill(frame, levels.front());
    for (std::size_t i = 1; i < levels.size(); ++i) {
        MEM_STACK_FRAME& further = further_frames.emplace_back(frame);
        fill(further, levels[i]);
    }
    return true;
}

bool MEM_SYMBOLIZER_DWARF::get_stack_frame(std::uint64_t pc, MEM_STACK_FRAME& frame) {
    std::vector<MEM_STACK_FRAME> unused;
    return get_stack_frames(pc, frame, unused);
}
