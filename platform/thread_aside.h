// Work on a thread of its own, for a caller that may be anywhere.
#pragma once

// Runs the action on a thread of its own, and waits for its end, but no longer than that; the thread goes on
// meanwhile. Signals stay with the other threads. Nothing runs when no thread can be had.
void run_aside(void (*action)(), int longest_wait_ms);
