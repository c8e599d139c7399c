// A module that allocates: built once as a shared library that the host calls through its PLT, and once as a
// plugin that it loads.
#include <cstdlib>

#include "tests/process/kept.h"

#define MODULE_VISIBLE __attribute__((visibility("default")))

extern "C" {
extern MODULE_VISIBLE const unsigned MODULE_FUNCTION_LINE = __LINE__ + 2;
MODULE_VISIBLE void* MODULE_FUNCTION() {
    return kept(std::malloc(3000));
}
}
