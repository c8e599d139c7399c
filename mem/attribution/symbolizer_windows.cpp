#include <mutex>

#include "mem/attribution/frame_text.h"
#include "mem/attribution/symbolizer.h"
#include "platform/dbghelp.h"
#include "platform/modules.h"

namespace {

// Two entry points are bound at their first use; a miss is not remembered.
using REFRESH_MODULE_LIST = bool (*)(HANDLE);
using FROM_ADDRESS = bool (*)(HANDLE, std::uint64_t, std::uint64_t*, SYMBOL_INFO*);
REFRESH_MODULE_LIST sym_refresh_module_list = nullptr;
FROM_ADDRESS sym_from_addr = nullptr;

template <class FUNCTION>
void bind(FUNCTION& slot, const char* name) {
    if (slot == nullptr) slot = reinterpret_cast<FUNCTION>(GetProcAddress(GetModuleHandleA("dbghelp"), name));
}

void refresh_module_list() {
    bind(sym_refresh_module_list, "SymRefreshModuleList");
    if (sym_refresh_module_list != nullptr) sym_refresh_module_list(GetCurrentProcess());
}

bool get_module_info(std::uint64_t pc, IMAGEHLP_MODULE64& module) {
    if (SymGetModuleInfo64(GetCurrentProcess(), pc, &module)) return true;
    refresh_module_list();
    return SymGetModuleInfo64(GetCurrentProcess(), pc, &module);
}

bool get_line(std::uint64_t pc, IMAGEHLP_LINE64& line) {
    std::uint32_t displacement = 0;
    if (SymGetLineFromAddr64(GetCurrentProcess(), pc, &displacement, &line)) return true;
    if (GetLastError() != ERROR_MOD_NOT_FOUND) return false;
    refresh_module_list();
    return SymGetLineFromAddr64(GetCurrentProcess(), pc, &displacement, &line);
}

// A SYMBOL_INFO with room for its name behind it.
struct NAMED_SYMBOL {
    static constexpr std::uint32_t max_name = 2000;
    SYMBOL_INFO info{};
    char rest_of_name[max_name] = {};
};

// False also when the entry point is missing or throws.
bool get_symbol(std::uint64_t pc, NAMED_SYMBOL& symbol) {
    bind(sym_from_addr, "SymFromAddr");
    if (sym_from_addr == nullptr) return false;
    std::uint64_t displacement = 0;
    try {
        return sym_from_addr(GetCurrentProcess(), pc, &displacement, &symbol.info);
    } catch (...) {
        return false;
    }
}

}  // namespace

MEM_SYMBOLIZER_WINDOWS* MEM_SYMBOLIZER_WINDOWS::get_instance() {
    static MEM_SYMBOLIZER_WINDOWS& instance = *new MEM_SYMBOLIZER_WINDOWS;
    return &instance;
}

bool MEM_SYMBOLIZER_WINDOWS::get_module_name(std::uint64_t pc, MEM_STACK_FRAME& frame) {
    frame.pc = pc;
    IMAGEHLP_MODULE64 module{};
    module.SizeOfStruct = sizeof module;
    const std::lock_guard guard(mem_tbb_symbolizer_lock);
    if (get_module_info(pc, module)) mem_set_frame_text(frame.module, module.ModuleName);
    return true;
}

bool MEM_SYMBOLIZER_WINDOWS::get_stack_frame(std::uint64_t pc, MEM_STACK_FRAME& frame) {
    frame.pc = pc;
    NAMED_SYMBOL symbol;
    symbol.info.SizeOfStruct = sizeof symbol.info;
    symbol.info.MaxNameLen = NAMED_SYMBOL::max_name;
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line;
    const std::lock_guard guard(mem_tbb_symbolizer_lock);
    if (get_line(pc, line)) {
        mem_set_frame_text(frame.file, line.FileName);
        frame.line = line.LineNumber;
    }
    if (get_symbol(pc, symbol)) {
        char decorated[513];
        mem_set_frame_text(decorated, symbol.info.Name);
        UnDecorateSymbolName(decorated, frame.function, 512, UNDNAME_NO_FUNCTION_RETURNS);
        frame.function[512] = '\0';
    }
    return true;
}
