// The suite's configuration library, as far as it is asked.
#include <cstring>
#include <string>

#include "tests/process/module.h"

extern "C" {
MODULE_SHOWN bool cfg_dyn_is_on(const char* name, bool default_value) {
    return std::strcmp(name, "mem_profile_per_fileline") == 0 || std::strcmp(name, "debug_msg") == 0 ||
           default_value;
}

MODULE_SHOWN void cfg_dyn_get_value(const char* name, std::string* value) {
    *value = std::strcmp(name, "mem_profile_stack_trace_ignore_depth") == 0 ? "4" : "";
}

MODULE_SHOWN void cfg_dyn_get_int_value(const char*, int* value, int default_value) {
    *value = default_value + 1;
}
}
