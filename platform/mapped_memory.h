// Whole pages of memory straight from the system, away from every heap. Safe in an allocator hook; errno is
// kept.
#pragma once

#include <cstddef>

// Zeroed pages, at least that many bytes. Null when the system gives none.
void* map_memory(std::size_t bytes);
// The same for what is about to be filled at random: its pages are there at once, as far as there is memory.
void* map_memory_to_fill(std::size_t bytes);
// A mapping as a whole, or its upper end.
void unmap_memory(void* memory, std::size_t bytes);

// How much of what map_memory gave out is resident, in bytes; exact while nobody maps or unmaps. A system
// call for each 2 MiB.
std::size_t resident_mapped_memory();

// A descriptor of that much zeroed memory, which takes only the pages that are touched, belongs to no file
// and can't shrink, so that who maps it never faults in it; -1 when there is none.
int make_shared_memory(const char* name, std::size_t bytes);
void close_shared_memory(int descriptor);

// Its bytes from an offset of whole pages on, for all who map them; null when that can't be. The descriptor
// may be closed behind it.
void* map_shared_memory(int descriptor, std::size_t bytes, std::size_t offset = 0);
const void* map_shared_memory_to_read(int descriptor, std::size_t bytes);

// For a copy that takes the place of mapped shared memory, part by part: writes the part at its offset in the
// copy, and maps the copy's part where the original one lies. False when that can't be.
bool write_shared_memory(int descriptor, std::size_t offset, const void* part, std::size_t bytes);
bool replace_by_shared_memory(void* part, std::size_t bytes, int descriptor, std::size_t offset);

// The bytes that lie behind a mapped part in the same shared memory, which must have them; null when there is
// no room. No descriptor is needed.
void* map_shared_memory_behind(void* mapped, std::size_t bytes, std::size_t more);
