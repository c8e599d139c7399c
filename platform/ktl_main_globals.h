// What a main program decides about fatal events. The definitions here are the answers of a program
// that has nothing to say: handling disabled, no callbacks. They are weak and exported, so a program that
// defines the same symbols, and exports them (it does when it is linked with this library; otherwise link it
// with -rdynamic), is asked in their place. Functions and variables have plain C names.
#pragma once

#include <atomic>

#include "ktl_mem/export.h"
#include "platform/exception_pointers.h"

extern "C" {
// Whether exception handling is enabled in this process. Asked once, while the library loads.
KTL_MEM_API bool main_eh_enabled();

// With true: records that termination has begun, and gives whether it had begun before. With false: gives
// whether it has begun. Must be safe on several threads at once and in a signal handler.
KTL_MEM_API bool main_terminate_called(bool record);

// The main program's own terminate action, or null.
KTL_MEM_API extern std::atomic<void (*)()> main_terminator_callback;

// The main program's own action for a structured exception, or null. It runs in the signal handler of the
// fault. Nobody reads its result.
KTL_MEM_API extern std::atomic<long (*)(EXCEPTION_POINTERS*)> main_seh_callback;
}
