// The suite's thread library as far as a host needs it: the thread start that runs the chain of wrappers
// around each thread. Exported, so that a host starts its threads here.
#pragma once

#include "ktl_mem/export.h"

// Starts a thread that runs function(argument) inside the chain of wrappers. Returns false when no thread
// could be started. *thread is joined with thr_thread_join, once.
struct THR_THREAD;
KTL_MEM_API bool thr_thread_start(THR_THREAD** thread, void* (*function)(void*), void* argument);
KTL_MEM_API void* thr_thread_join(THR_THREAD* thread);
