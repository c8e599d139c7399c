// What a fork means for the tracker.
#pragma once

// Registers the handlers of forks. A forked child is left alone: tracking belongs to its parent. Where
// forked children are to be tracked (mem/tracker/fork_gate.h) the child goes on from a copy of its parent's
// tables, unless the forking thread blocks its own tracking, is inside the tracker, or waits in vain for the
// other threads' events to end.
void mem_guard_forks();
