// The services that the library takes from its host: configuration, paths and messages.
//
// Each service is a slot for one function. Setters store the pointer, null empties the slot, and a slot
// may be set or emptied at any time from any thread; the next call on any thread uses the new value. What
// a callback throws passes through to the caller. None of these calls may be made in an allocator hook.
#pragma once

#include <cstdarg>
#include <string>

#include "ktl_mem/export.h"

KTL_MEM_API void mem_set_cfg_is_on_callback(bool (*callback)(const char* name, bool default_value));
KTL_MEM_API void mem_set_cfg_get_value_callback(void (*callback)(const char* name, std::string* out));
KTL_MEM_API void mem_set_cfg_get_int_value_callback(void (*callback)(const char* name, int* out,
                                                                     int default_value));
KTL_MEM_API void mem_set_gen_get_veldrin_path_callback(std::string (*callback)());
KTL_MEM_API void mem_set_gen_get_db_dir_path_string_callback(std::string (*callback)());
KTL_MEM_API void mem_set_gen_get_is_ui_process_callback(bool (*callback)());
KTL_MEM_API void mem_set_gen_get_module_filename_callback(std::string (*callback)());
KTL_MEM_API void mem_set_gen_get_project_output_directory_callback(const char* (*callback)());
KTL_MEM_API void mem_set_vtcl_run_internal_tcl_cmd_callback(bool (*callback)(const char* command));
KTL_MEM_API void mem_set_msg_local_vdebug_callback(bool (*callback)(const char* module, const char* format,
                                                                    va_list args));
KTL_MEM_API void mem_set_msg_local_vinfo_callback(bool (*callback)(const char* module, const char* format,
                                                                   va_list args));

// Configuration. The slot answers when it is filled; else the configuration library, when the process
// held it at the first call of its kind; else the environment variable of that name.
//
// A switch is on for "on" and "1", off for "off" and "0", case ignored; any other text, an absent variable
// and a null name give the default.
KTL_MEM_API bool mem_cfg_is_on(const char* name, bool default_value);
// The empty string when there is no value, and for a null name.
KTL_MEM_API std::string mem_cfg_get_value(const char* name);
// 0 when there is no value: the default reaches the callback only.
KTL_MEM_API int mem_cfg_get_int_value(const char* name, int default_value);

// Paths and the like; empty, false, or an empty text (never null) when the slot is empty.
KTL_MEM_API std::string mem_gen_get_veldrin_path();
KTL_MEM_API std::string mem_gen_get_db_dir_path_string();
KTL_MEM_API std::string mem_gen_get_module_filename();
KTL_MEM_API const char* mem_gen_get_project_output_directory();
KTL_MEM_API bool mem_gen_get_is_ui_process();
KTL_MEM_API bool mem_vtcl_run_internal_tcl_cmd(const char* command);

// Messages, in printf's form. Without a callback, debug lines go to standard output while the key
// "debug_msg" is on, and information always. The text is not escaped.
KTL_MEM_API bool mem_msg_local_vdebug(const char* module, const char* format, va_list args);
KTL_MEM_API bool mem_msg_local_vinfo(const char* module, const char* format, va_list args);

// The form of debug lines on standard output; any other value means plain text.
enum MEM_IPC_MODE : int { MEM_IPC_MODE_NONE = 0, MEM_IPC_MODE_TCL = 1, MEM_IPC_MODE_JSON = 2 };
KTL_MEM_API void mem_set_ipc_mode(MEM_IPC_MODE mode);

// A place for the suite's message object. The library neither reads nor writes it.
class MSG_INTERFACE;
extern KTL_MEM_API MSG_INTERFACE* msg_interface;
