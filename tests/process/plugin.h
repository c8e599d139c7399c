// What a host and its plugin know of each other.
#pragma once

extern "C" {
// The plugin's constructor and destructor run this, in the middle of dlopen and dlclose. May be null.
extern __attribute__((visibility("default"))) void (*plugin_action)();
}

// "allocate_in_plugin" of the plugin.
using ALLOCATE_IN_PLUGIN = void*(unsigned long bytes);
