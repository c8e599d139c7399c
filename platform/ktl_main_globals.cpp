#include "platform/ktl_main_globals.h"

namespace {

std::atomic<bool> terminate_called{false};

}  // namespace

extern "C" {

__attribute__((weak)) bool main_eh_enabled() {
    return false;
}

__attribute__((weak)) bool main_terminate_called(bool record) {
    return record ? terminate_called.exchange(true) : terminate_called.load();
}

__attribute__((weak)) std::atomic<void (*)()> main_terminator_callback{nullptr};

__attribute__((weak)) std::atomic<long (*)(EXCEPTION_POINTERS*)> main_seh_callback{nullptr};

}  // extern "C"
