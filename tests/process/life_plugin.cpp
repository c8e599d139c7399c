#include "tests/process/life_plugin.h"

#include <cstdlib>

namespace {

struct LIFE {
    LIFE() { plugin_constructor_action(); }
    ~LIFE() { plugin_constructor_action(); }
} life;

}  // namespace

extern "C" __attribute__((visibility("default"))) void* life_plugin_block() {
    void* block = std::malloc(77);
    asm volatile("" : "+r"(block));
    return block;
}
