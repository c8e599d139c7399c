// The end of the process, which one thread makes while others still run.
#pragma once

// Makes the calling thread the one that ends the process. When another thread does that already, waits for
// the end and never returns. Called again by the same thread it does nothing.
//
// Besides mem_exit it is registered as the exit action that runs last, and opens the library's own part of an
// exit that the host began: two threads that run exit at once share one list of exit actions, and whichever
// comes to its end first would cut short what the other is writing.
void mem_claim_exit();

// Ends the process with exit(code), once it is the calling thread's to end. Called inside an exit action, the
// exit under way goes on with the next action. The caller must hold no lock that an exit action can want.
[[noreturn]] void mem_exit(int code);

// Ends the process at once: no exit action runs. Safe in a signal handler.
[[noreturn]] void mem_terminate(int code);
