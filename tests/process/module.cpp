// A module with one call site. Copies of it under other names are modules of their own.
#include "tests/process/module.h"

#include <cstdlib>

#include "tests/process/kept.h"

namespace {

struct LIFE {
    LIFE() { run_action(); }
    ~LIFE() { run_action(); }
    static void run_action() {
        if (&module_action != nullptr && module_action != nullptr) module_action();
    }
} life;

}  // namespace

const unsigned module_block_line = __LINE__ + 2;
void* module_block(unsigned long bytes) {
    return kept(std::malloc(bytes));
}
