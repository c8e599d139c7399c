// A module to load and unload. Built twice, with the same code around frames of different sizes, so that the
// two, mapped at the same address, have the same program counters and different rules.
#include <cmath>

namespace {

__attribute__((noinline)) void inner(void (*visit)()) {
    volatile char local[PLUGIN_FRAME] = {};
    asm volatile("" : : "r"(local) : "memory");
    visit();
    asm volatile("" : : "r"(local) : "memory");
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void unwind_plugin(void (*visit)()) {
    volatile char local[PLUGIN_FRAME] = {};
    asm volatile("" : : "r"(local) : "memory");
    volatile double number = std::floor(std::cbrt(8.5));  // bound at the first call
    inner(visit);
    number = number + 1;
    asm volatile("" : : "r"(local) : "memory");
}
