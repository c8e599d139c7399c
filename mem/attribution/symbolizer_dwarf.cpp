#include "mem/attribution/code_names.h"
#include "mem/attribution/frame_text.h"
#include "mem/attribution/symbolizer.h"
#include "platform/symbol_services.h"

namespace {

void fill(MEM_STACK_FRAME& frame, const symbols::LEVEL& level) {
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
    const symbols::MODULE* module = mem_find_module(pc);
    if (module != nullptr) mem_set_frame_text(frame.module, module->name);
    return true;
}

bool MEM_SYMBOLIZER_DWARF::get_stack_frames(std::uint64_t pc, MEM_STACK_FRAME& frame,
                                            std::vector<MEM_STACK_FRAME>& further_frames) {
    frame.pc = pc;
    further_frames.clear();
    MEM_CODE_NAMES names({pc}, {mem_find_module(pc)});
    const std::size_t count = names.level_count(0);
    if (count != 0) fill(frame, names.level(0, 0));
    for (std::size_t i = 1; i < count; ++i) fill(further_frames.emplace_back(frame), names.level(0, i));
    return true;
}

bool MEM_SYMBOLIZER_DWARF::get_stack_frame(std::uint64_t pc, MEM_STACK_FRAME& frame) {
    std::vector<MEM_STACK_FRAME> unused;
    return get_stack_frames(pc, frame, unused);
}
