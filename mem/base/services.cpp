#include "ktl_mem/services.h"

#include <strings.h>

#include <atomic>
#include <boost/format.hpp>
#include <cstdio>
#include <cstdlib>

#include "mem/base/messages.h"
#include "platform/modules.h"

MSG_INTERFACE* msg_interface = nullptr;

namespace {

// One service of the host. Relaxed: a slot is one word, and a store takes effect for the next call.
template <class FUNCTION>
class SLOT {
  public:
    FUNCTION get() const { return function.load(std::memory_order_relaxed); }
    void set(FUNCTION next) { function.store(next, std::memory_order_relaxed); }
    void set_if_empty(FUNCTION next) {
        FUNCTION none = nullptr;
        function.compare_exchange_strong(none, next, std::memory_order_relaxed);
    }

  private:
    std::atomic<FUNCTION> function{nullptr};
};

// A service that the configuration library offers too. It is looked for once in the process, at the first
// call that finds the slot empty. What the host sets meanwhile stays, and a thread that comes second is
// served by the environment until the function is found.
template <class FUNCTION>
class LATE_BOUND_SLOT : public SLOT<FUNCTION> {
  public:
    FUNCTION get_or_bind(const char* entry) {
        if (this->get() == nullptr && may_bind.exchange(false, std::memory_order_relaxed))
            this->set_if_empty(reinterpret_cast<FUNCTION>(
                thr_drl_find_function(GetModuleHandleA("ktl_cfg_ini.dll"), entry)));
        return this->get();
    }

  private:
    std::atomic<bool> may_bind{true};
};

LATE_BOUND_SLOT<bool (*)(const char*, bool)> cfg_is_on_slot;
LATE_BOUND_SLOT<void (*)(const char*, std::string*)> cfg_get_value_slot;
LATE_BOUND_SLOT<void (*)(const char*, int*, int)> cfg_get_int_value_slot;
SLOT<std::string (*)()> veldrin_path_slot;
SLOT<std::string (*)()> db_dir_path_slot;
SLOT<std::string (*)()> module_filename_slot;
SLOT<bool (*)()> is_ui_process_slot;
SLOT<const char* (*)()> project_output_directory_slot;
SLOT<bool (*)(const char*)> run_internal_tcl_cmd_slot;
SLOT<bool (*)(const char*, const char*, va_list)> vdebug_slot;
SLOT<bool (*)(const char*, const char*, va_list)> vinfo_slot;
std::atomic<int> mem_ipc_mode{MEM_IPC_MODE_NONE};

// What stands before and after the text of a debug line in each form.
struct DEBUG_LINE_FORM {
    const char* before;
    const char* after;
};

DEBUG_LINE_FORM debug_line_form() {
    switch (mem_ipc_mode.load(std::memory_order_relaxed)) {
        case MEM_IPC_MODE_TCL:
            return {R"(msg_tcl_post_message 0 { "Debug" "" "" ")",
                    R"(" {  } {  } 0 0 "" 0 0 "app" 0 -1 0 ""})"};
        case MEM_IPC_MODE_JSON:
            return {
                R"({"args":"","flag":0,"help_id":"","hierarchy_path":"","id":0,"object_type":"MSG_POST",)"
                R"("raw":"","severity":0,"source":"app","source_id":-1,"sub_messages":[],"suppress":false,)"
                R"("suppress_type":0,"text":")",
                R"(","timestamp":0,"type":"Debug"})"};
        default:
            return {"Debug: ", ""};
    }
}

std::string call_path_service(const SLOT<std::string (*)()>& slot) {
    const auto callback = slot.get();
    return callback != nullptr ? callback() : std::string();
}

}  // namespace

void mem_set_cfg_is_on_callback(bool (*callback)(const char*, bool)) {
    cfg_is_on_slot.set(callback);
}
void mem_set_cfg_get_value_callback(void (*callback)(const char*, std::string*)) {
    cfg_get_value_slot.set(callback);
}
void mem_set_cfg_get_int_value_callback(void (*callback)(const char*, int*, int)) {
    cfg_get_int_value_slot.set(callback);
}
void mem_set_gen_get_veldrin_path_callback(std::string (*callback)()) {
    veldrin_path_slot.set(callback);
}
void mem_set_gen_get_db_dir_path_string_callback(std::string (*callback)()) {
    db_dir_path_slot.set(callback);
}
void mem_set_gen_get_is_ui_process_callback(bool (*callback)()) {
    is_ui_process_slot.set(callback);
}
void mem_set_gen_get_module_filename_callback(std::string (*callback)()) {
    module_filename_slot.set(callback);
}
void mem_set_gen_get_project_output_directory_callback(const char* (*callback)()) {
    project_output_directory_slot.set(callback);
}
void mem_set_vtcl_run_internal_tcl_cmd_callback(bool (*callback)(const char*)) {
    run_internal_tcl_cmd_slot.set(callback);
}
void mem_set_msg_local_vdebug_callback(bool (*callback)(const char*, const char*, va_list)) {
    vdebug_slot.set(callback);
}
void mem_set_msg_local_vinfo_callback(bool (*callback)(const char*, const char*, va_list)) {
    vinfo_slot.set(callback);
}

bool mem_cfg_is_on(const char* name, bool default_value) {
    if (const auto callback = cfg_is_on_slot.get_or_bind("cfg_dyn_is_on"))
        return callback(name, default_value);
    const char* value = name != nullptr ? std::getenv(name) : nullptr;
    if (value == nullptr) return default_value;
    if (strcasecmp(value, "on") == 0 || strcasecmp(value, "1") == 0) return true;
    if (strcasecmp(value, "off") == 0 || strcasecmp(value, "0") == 0) return false;
    return default_value;
}

std::string mem_cfg_get_value(const char* name) {
    if (const auto callback = cfg_get_value_slot.get_or_bind("cfg_dyn_get_value")) {
        std::string result;
        callback(name, &result);
        return result;
    }
    const char* value = name != nullptr ? std::getenv(name) : nullptr;
    return value != nullptr ? value : "";
}

int mem_cfg_get_int_value(const char* name, int default_value) {
    if (const auto callback = cfg_get_int_value_slot.get_or_bind("cfg_dyn_get_int_value")) {
        int result = 0;
        callback(name, &result, default_value);
        return result;
    }
    const char* value = name != nullptr ? std::getenv(name) : nullptr;
    if (value == nullptr) return 0;
    // What the conversion makes of no digits, and of too many, is what callers have always got.
    return std::atoi(value);  // NOLINT(cert-err34-c)
}

std::string mem_gen_get_veldrin_path() {
    return call_path_service(veldrin_path_slot);
}
std::string mem_gen_get_db_dir_path_string() {
    return call_path_service(db_dir_path_slot);
}
std::string mem_gen_get_module_filename() {
    return call_path_service(module_filename_slot);
}

const char* mem_gen_get_project_output_directory() {
    const auto callback = project_output_directory_slot.get();
    return callback != nullptr ? callback() : "";
}

bool mem_gen_get_is_ui_process() {
    const auto callback = is_ui_process_slot.get();
    return callback != nullptr && callback();
}

bool mem_vtcl_run_internal_tcl_cmd(const char* command) {
    const auto callback = run_internal_tcl_cmd_slot.get();
    return callback != nullptr && callback(command);
}

bool mem_msg_local_vdebug(const char* module, const char* format, va_list args) {
    if (const auto callback = vdebug_slot.get()) return callback(module, format, args);
    if (!mem_cfg_is_on("debug_msg", false)) return true;
    const DEBUG_LINE_FORM form = debug_line_form();
    std::printf("%s%s: ", form.before, module);
    std::vprintf(format, args);
    std::printf("%s\n", form.after);
    return true;
}

bool mem_msg_local_vinfo(const char* module, const char* format, va_list args) {
    if (const auto callback = vinfo_slot.get()) return callback(module, format, args);
    std::printf("%s: ", module);
    std::vprintf(format, args);
    std::printf("\n");
    return true;
}

void mem_set_ipc_mode(MEM_IPC_MODE mode) {
    mem_ipc_mode.store(mode, std::memory_order_relaxed);
}

void mem_msg_debug(const char* format, ...) {
    va_list args;
    va_start(args, format);
    mem_msg_local_vdebug("MEM", format, args);
    va_end(args);
}

void mem_debug_print_formatted(const char* format, const char* argument) {
    const DEBUG_LINE_FORM form = debug_line_form();
    const std::string text = (boost::format(format) % argument).str();
    std::printf("%s%s%s\n", form.before, text.c_str(), form.after);
}
