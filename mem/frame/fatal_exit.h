// Faults and std::terminate, reported in one way: to the main program's callback, or in one line on standard
// error and an end with exit code 2 at once. Only when the main program has enabled exception handling
// (platform/ktl_main_globals.h); otherwise nothing is installed.
#pragma once

struct EXCEPTION_POINTERS;

// The first step of the load: the translator alone, so that the steps which follow are covered.
void mem_install_load_translator();

// Translator and terminate handler, once the static initialisers have run. Both are settings of the whole
// process here, so the loading thread alone calls this. Other threads get the one thing that they lack, an
// alternate stack, from platform/thread_start.cpp when they start.
void mem_install_thread_handlers();

// Runs a part of the library's load or unload. With handling enabled, an exception that leaves it goes to
// mem_terminate_handler, and when that returns the part counts as done.
void mem_run_entry_point(void (*work)());

void mem_se_translator(unsigned code, EXCEPTION_POINTERS* pointers);

// Null pointers are shown as the code -1. Returns the callback's result.
long mem_fatal_structured_exception(EXCEPTION_POINTERS* pointers);

void mem_terminate_handler();
