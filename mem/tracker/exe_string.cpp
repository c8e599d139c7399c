#include "mem/tracker/exe_string.h"

#include "ktl_mem/tracking.h"
#include "mem/base/internal_error.h"
#include "mem/base/tracker_phase.h"

std::string* mem_tbb_exe_string = nullptr;

void mem_create_exe_string() {
    mem_tbb_exe_string = new std::string("vii");
}

const char* mem_get_tbb_exe_string() {
    return mem_tbb_exe_string != nullptr ? mem_tbb_exe_string->c_str() : "";
}

void mem_set_tbb_exe_string(const char* exe_string) {
    mem_require(exe_string != nullptr, mem_conditions::name_is_given);
    if (mem_tbb_tracker_has_ended()) return;
    mem_require(mem_tbb_exe_string != nullptr, mem_conditions::name_exists_at_change);
    *mem_tbb_exe_string = exe_string;
}
