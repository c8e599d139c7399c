// Stacks by the walker of the C++ runtime, which shares no code with ours, and the comparison.
#pragma once

#include <string>

// Compares the callers of the calling function as both walkers see them, with and without the table of
// rules. Differences are remembered, since a test may compare inside a signal handler; nothing is allocated.
void compare_stacks();

// The same for the default unwinder, which walks once.
void compare_capture();

// What the comparisons have found since the last call: the deepest stack, 0 when nothing was compared, and a
// text about the first difference, empty when there was none.
struct COMPARED_STACKS {
    int deepest;
    std::string difference;
};
COMPARED_STACKS take_compared_stacks();
