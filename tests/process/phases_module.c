// A module with one call site. Copies of it under other names are modules of their own.
#include <stdlib.h>

__attribute__((visibility("default"))) void* allocate_in_module(size_t bytes) {
    void* block = malloc(bytes);
    *(volatile char*)block = 1;  // keeps this frame on the stack during the call
    return block;
}
