// A module with one call site, on line 21. Copies of it under other names are modules of their own.
#include "tests/process/plugin.h"

#include <cstdlib>

#include "tests/process/kept.h"

namespace {

struct LIFE {
    LIFE() { run_action(); }
    ~LIFE() { run_action(); }
    static void run_action() {
        if (plugin_action != nullptr) plugin_action();
    }
} life;

}  // namespace

extern "C" __attribute__((visibility("default"))) void* allocate_in_plugin(unsigned long bytes) {
    return kept(std::malloc(bytes));
}
