// Faults of the process as structured exceptions: SIGSEGV, SIGBUS, SIGFPE and SIGILL. The code of an
// exception is the number of its signal.
#pragma once

#include "platform/exception_pointers.h"

using SE_TRANSLATOR = void (*)(unsigned code, EXCEPTION_POINTERS* pointers);

// Installs the translator for the threads of the process. It runs in the signal handler, on the thread of the
// fault and on an alternate stack where that has one: the calling thread, and each thread that pthread_create
// starts from then on (see thread_start.cpp). When it returns, the disposition of the signal that was in
// force before is put back and the fault happens again, so that it ends as if nothing had been installed.
//
// The first call installs the signal handlers; a handler that the host sets later for one of the signals
// stays in force, whatever is called here afterwards. Not for use in an allocator hook.
void _set_se_translator(SE_TRANSLATOR translator);

// Runs work(argument). When a C++ exception leaves it, or a fault in it that the translator returned from,
// runs failed and does not return to what failed; when work is left in such a way, its destructors may not
// run. Safe in a signal handler.
void call_with_catch_all(void (*work)(void*), void* argument, void (*failed)());

// Whether there is a translator.
bool se_translator_is_set();
