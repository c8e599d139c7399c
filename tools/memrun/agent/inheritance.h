// What a program that takes this one's place by exec is to find in its environment: the launcher's variables,
// so that it is tracked in its stead.
#pragma once

#include <cstddef>

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// Keeps the launcher's variables, before the program's environment loses them. Allocates on no heap.
void keep_inheritance(const Orders& orders);

// Whether this process has an heir, which a forked child has not. Safe in a signal handler, like all below.
bool has_heir();

// Whether the launcher can track what `file` holds, a descriptor of this process; -1 is nothing.
bool can_inherit(int file);

// The environment of the heir: the program's `own`, in which what the launcher governs is put aside, and the
// launcher's variables. It is given back at the end of the scope, which is reached when the exec fails.
class HeirEnvironment {
  public:
    explicit HeirEnvironment(char* const* own);
    ~HeirEnvironment();
    HeirEnvironment(const HeirEnvironment&) = delete;
    HeirEnvironment& operator=(const HeirEnvironment&) = delete;

    // Where memory is short it is the program's own.
    char* const* get() const { return entries_; }

  private:
    void* memory_ = nullptr;
    std::size_t size_ = 0;
    char* const* entries_;
};

}  // namespace memrun::agent
