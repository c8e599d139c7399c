// The note that the launcher leaves beside the reports of a run: a line "BYTES NAME" for each. Not every
// report has a closing line, so that without it one that was cut at the end of a row later looks whole.
#pragma once

inline constexpr const char* size_note_name = "ktl_memrun.sizes";
