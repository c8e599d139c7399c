// The end of the process, which one thread makes while others still run.
#pragma once

// Makes the calling thread the one that ends the process. When another thread does that already, waits for
// the end and never returns. Called again by the same thread it does nothing.
void mem_claim_exit();

// The same for an exit action, which another thread may have been given than the one that ends the process:
// two threads that run exit at once share one list. An action that came to the wrong thread goes back into
// the list.
void mem_claim_exit_action(void (*action)());

// Ends the process with exit(code), once it is the calling thread's to end. Called inside an exit action, the
// exit under way goes on with the next action. The caller must hold no lock that an exit action can want.
[[noreturn]] void mem_exit(int code);

// Ends the process at once: no exit action runs. Safe in a signal handler.
[[noreturn]] void mem_terminate(int code);
