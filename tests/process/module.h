// What a host and a module that it links or loads know of each other.
#pragma once

#define MODULE_SHOWN __attribute__((visibility("default")))

extern "C" {
// Of the host, if it has one: the module's constructor and destructor run it, in the middle of dlopen and
// dlclose.
extern MODULE_SHOWN __attribute__((weak)) void (*module_action)();

MODULE_SHOWN void* module_block(unsigned long bytes);
extern MODULE_SHOWN const unsigned module_block_line;

// Lets a thread come and go that touches data which the module has for each thread.
MODULE_SHOWN void module_thread();
}
