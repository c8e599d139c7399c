// The suite's thread library as far as the memory layer itself uses it: the chain of wrappers that run around
// each thread.
#pragma once

// A wrapper gets two arguments and gives a result, all of which it passes on unchanged to the next one.
using THR_WRAPPER = void* (*)(void* first, void* second);

// Puts wrapper at the front of the chain and stores the wrapper that was there in *next, which wrapper
// must call. Not safe against a thread start at the same moment.
void thr_thread_set_next_wrapper_func(THR_WRAPPER wrapper, THR_WRAPPER* next);

// The handler that a failed allocation of this library runs; null removes it.
void thr_set_new_handler(void (*handler)());
