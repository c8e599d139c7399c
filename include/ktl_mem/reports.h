// Reports of the tracker: tables of text, columns apart by tabs. The shut-down writes them all into files;
// these calls write one at any moment while the process runs.
//
// Streams stay open and belong to the caller. What is set on them (base, width, locale) does not change a
// report. A stream in a failed state costs the text and nothing else. What a stream throws passes through.
// What a stream allocates meanwhile is not tracked, while the free of that is, if tracking is on by then: it
// comes off OTHER, which so falls below zero. A stream with a buffer of its own before the call avoids that.
//
// The calls are safe from any thread while others allocate, sample, flush and reset; events that reach a
// sample point of the data being written wait for the end. A stream must therefore not need another thread
// to get on: give a file or a string, not a pipe whose reader allocates in this process. The tracker must
// have started; after its end, and in a forked child, nothing is written. None may be made in an allocator
// hook.
#pragma once

#include <iosfwd>

#include "ktl_mem/export.h"

// The call sites, highest share of the latest recorded peak first. Always true.
KTL_MEM_API bool mem_dump_tbb_fileline_tracking(std::ostream& out);

// The call sites summed up by module, in the same order. Always true.
KTL_MEM_API bool mem_dump_tbb_subsystem_tracking(std::ostream& out);

// The call paths: the tree of callers with the figures of each path, and everybody's share at the exact peak,
// the highest total that the tracked blocks ever had. Always true.
KTL_MEM_API bool mem_dump_tbb_call_paths_tracking(std::ostream& out);

// Current bytes of each module, sample by sample. `plain` gets the 18 modules with the highest values, and
// the sum of the others; `detailed` gets all. False, and nothing written, when a stream has failed already.
KTL_MEM_API bool mem_dump_tbb_module_tracking(std::ostream& plain, std::ostream& detailed);

// Current bytes of each tag, sample by sample, in the same two forms. Always true.
KTL_MEM_API bool mem_dump_tbb_profile_bin_tag_timeline_tracking(std::ostream& plain, std::ostream& detailed);

// The counters of each bin, and of each tag, in bytes. They change while they are written: two figures can
// come from two moments. Always true.
KTL_MEM_API bool mem_dump_tbb_profile_bin_stats_tracking(std::ostream& out);
KTL_MEM_API bool mem_dump_tbb_profile_bin_tag_stats_tracking(std::ostream& out);

// Ends tracking and writes all report files into the current directory, as the end of the process does by
// itself. Does nothing before the tracker's start. A second call writes only what the leak settings and the
// filters ask for again.
KTL_MEM_API void mem_shutdown_tbb_tracking();
