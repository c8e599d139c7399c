// What the program maps without a file, announced to the tracker as allocations.
#pragma once

namespace memrun::agent {

// From here on. Mappings that the allocator, the tracker, the loader and the C library make for themselves,
// such as stacks of threads, are left out. Calls the loader.
void announce_mappings();

}  // namespace memrun::agent
