// Which frames of a stack are not held responsible: allocator wrappers, containers, the system's own
// modules, and what the user adds by a file of prefixes. Rules only remove frames.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The user's prefixes in the order of the file. Filled while the tracker starts, and then only read, by any
// number of threads without a lock.
extern std::vector<std::string> mem_filter_modules;
extern std::vector<std::string> mem_filter_functions;
extern std::vector<std::string> mem_filter_file_basenames;

// An empty text is filtered. Neither allocates or fails; safe in a hook.
bool mem_module_is_filtered(std::string_view module);
bool mem_frame_is_filtered(std::string_view file, std::string_view function);

// Their parts that need nothing of this process. The platform's runtime and loader are judged by their names,
// which an executable may bear by chance.
bool mem_module_is_filtered_by_rule(std::string_view name);
bool mem_module_name_is_of_system(std::string_view name);

// Reads the file that the key "mem_user_defined_filters_file" names into the lists, with a debug line for
// each entry and each error. A line is a command, filter_module, filter_function or filter_file_basename, and
// one argument; "#" as a word of its own begins a comment. A bad line, and one of more than 4,095 characters,
// costs that line; a file that is unreadable or a device costs the user's filters. Called once, by the
// tracker's start, before any event.
void mem_read_user_defined_filters();
