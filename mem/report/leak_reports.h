// What was never freed. Written by the shut-down, which holds the gate; a file that cannot be opened costs
// the report and nothing else.
#pragma once

// One line for each call site that still holds bytes.
void mem_dump_tbb_leak_tracking();

// A block of two numbers, appended to a log that many processes share.
void mem_dump_tbb_fast_leak_tracking();
