// What life_host and its plugin know of each other.
#pragma once

// The plugin's constructor and destructor run this, in the middle of dlopen and dlclose.
extern "C" __attribute__((visibility("default"))) void (*plugin_constructor_action)();
