// Memory that launcher and program share. It belongs to no file, and nobody can shrink it, so that who maps
// it never faults in it.
#pragma once

#include <cstddef>

namespace memrun::link {

// A descriptor of that much zeroed memory, which may still grow; -1 when there is none. Allocates nothing.
int make_shared_memory(const char* name, std::size_t size);

// The size of memory as above; 0 when the descriptor is of anything else.
std::size_t shared_size(int fd);

// Its first bytes, mapped; null when it is smaller or no such memory. The descriptor may be closed behind it.
void* map_shared_memory(int fd, std::size_t size);

}  // namespace memrun::link
