// The library's own lines. Both may allocate and call the host: not in a hook outside the event bodies,
// and never with a spin lock of the tracker held.
#pragma once

// One debug line under the module name "MEM", in printf's form.
void mem_msg_debug(const char* format, ...) __attribute__((format(printf, 1, 2)));

// One debug line straight to standard output in the form of the IPC mode. The format takes one string.
void mem_debug_print_formatted(const char* format, const char* argument);
