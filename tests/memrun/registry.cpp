// A library whose constructor allocates: linked into a program, or opened by it.
#include <cstdlib>

#include "tests/process/kept.h"
#include "tests/process/module.h"

namespace {

void* entries[20000];

}  // namespace

extern "C" {
MODULE_SHOWN int registry_arguments = 0;

// Blocks of 1024 bytes, as the allocator counts them, and a free behind each.
__attribute__((constructor)) static void fill_registry(int argc, char**, char**) {
    registry_arguments = argc;
    for (void*& entry : entries) {
        entry = kept(std::malloc(1000));
        std::free(kept(std::malloc(10)));
    }
}

MODULE_SHOWN void clear_registry() {
    for (void* const entry : entries) std::free(entry);
}

MODULE_SHOWN void* registry_block() {
    return kept(std::malloc(100));
}
}
