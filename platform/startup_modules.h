// The modules that the loader mapped before the program began: the program itself, what it was linked with
// and what was preloaded. The loader never unloads them, so what was found out about their code once stays
// true.
#pragma once

#include <cstdint>

struct STARTUP_MODULE {
    std::uint64_t begin;
    std::uint64_t end;
    const void* frame_index;  // its .eh_frame_hdr, or null
};

// The module that holds address, or null when that is none of them, or not known to be one. The first call
// looks at the loader's list. Takes no lock, allocates nothing; safe in a hook and in a signal handler.
const STARTUP_MODULE* startup_module_at(std::uint64_t address);
