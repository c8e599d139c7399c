#include "platform/new_mode.h"

#include <malloc.h>

#include <atomic>
#include <new>

#include "platform/modules.h"

namespace {

std::atomic<NEW_HANDLER> new_handler{nullptr};
std::atomic<int> new_mode{0};

void run_new_handler();

// The exception itself needs memory, and must not ask the handler for it: the runtime has some of its own.
[[noreturn]] void give_up() {
    std::set_new_handler(nullptr);
    try {
        throw std::bad_alloc();
    } catch (...) {
        std::set_new_handler(run_new_handler);
        throw;
    }
}

// What the C++ runtime calls. It tries again when this returns.
void run_new_handler() {
    const NEW_HANDLER handler = new_handler.load();
    if (handler == nullptr || handler(0) == 0) give_up();
}

}  // namespace

NEW_HANDLER _set_new_handler(NEW_HANDLER handler) {
    const NEW_HANDLER before = new_handler.exchange(handler);
    std::set_new_handler(handler == nullptr ? nullptr : run_new_handler);
    return before;
}

int _set_new_mode(int mode) {
    return new_mode.exchange(mode);
}

void tbbx_set_new_mode(int mode) {
    using SET_MODE = void (*)(int);
    const auto set_mode =
        reinterpret_cast<SET_MODE>(GetProcAddress(GetModuleHandleA("tbbxmalloc"), "tbbx_set_new_mode"));
    if (set_mode != nullptr) set_mode(mode);
}

std::size_t _msize(void* block) {
    return malloc_usable_size(block);
}
