#include "mem/attribution/symbolizer.h"

#include <string>

#include "ktl_mem/services.h"
#include "mem/base/internal_error.h"
#include "mem/base/messages.h"
#include "platform/symbol_services.h"

MEM_SYMBOLIZER* mem_tbb_symbolizer = nullptr;
MEM_SPIN_LOCK mem_tbb_symbolizer_lock;

bool MEM_SYMBOLIZER::get_stack_frames(std::uint64_t pc, MEM_STACK_FRAME& frame,
                                      std::vector<MEM_STACK_FRAME>& further_frames) {
    further_frames.clear();
    return get_stack_frame(pc, frame);
}

namespace {

MEM_SYMBOLIZER* find_symbolizer(const std::string& word) {
    if (word == "default" || word == "dwarf") return MEM_SYMBOLIZER_DWARF::get_instance();
    if (word == "windows") return MEM_SYMBOLIZER_WINDOWS::get_instance();
    return nullptr;
}

}  // namespace

void mem_choose_symbolizer(bool announce) {
    std::string word = mem_cfg_get_value("mem_symbolizer");
    if (word.empty()) word = "default";
    mem_tbb_symbolizer = find_symbolizer(word);
    if (mem_tbb_symbolizer == nullptr) {
        mem_tbb_symbolizer = find_symbolizer("default");
        mem_require(mem_tbb_symbolizer != nullptr, mem_conditions::symbolizer_exists);
        mem_msg_debug("Couldn't find symbolizer \"%s\".  Using default symbolizer \"%s\"\n", word.c_str(),
                      mem_tbb_symbolizer->get_name());
    }
    // Somebody who joins the process names its code, or opens the files later.
    const bool is_served = mem_tbb_symbolizer == MEM_SYMBOLIZER_DWARF::get_instance() &&
                           mem_cfg_is_on("mem_names_are_served", false);
    if (!is_served) symbols::open_files();
    if (!is_served && !symbols::has_open_files())
        mem_msg_debug("Couldn't open libktl_mem_symbols.so beside the library.  No code has its lines\n");
    if (announce) mem_msg_debug("Using symbolizer %s", mem_tbb_symbolizer->get_name());
}
