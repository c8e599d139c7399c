// The suite's thread library as far as the memory layer knows it: the chain of wrappers that run around
// each thread, and the thread start that runs it. Exported, so that a host starts its threads here.
#pragma once

#include "ktl_mem/export.h"

// A wrapper gets two arguments and gives a result, all of which it passes on unchanged to the next one.
using THR_WRAPPER = void* (*)(void* first, void* second);

// Puts wrapper at the front of the chain and stores the wrapper that was there in *next, which wrapper
// must call. Not safe against a thread start at the same moment.
void thr_thread_set_next_wrapper_func(THR_WRAPPER wrapper, THR_WRAPPER* next);

// The handler that a failed allocation of this library runs; null removes it.
void thr_set_new_handler(void (*handler)());

// Starts a thread that runs function(argument) inside the chain of wrappers. Returns false when no thread
// could be started. *thread is joined with thr_thread_join, once.
struct THR_THREAD;
KTL_MEM_API bool thr_thread_start(THR_THREAD** thread, void* (*function)(void*), void* argument);
KTL_MEM_API void* thr_thread_join(THR_THREAD* thread);
