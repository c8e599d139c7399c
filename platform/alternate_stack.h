// The stack of a thread on which it handles the signal of a fault, so that a fault that has used up the
// thread's own stack can be handled as well.
#pragma once

#include <cstddef>
#include <cstdint>

// Mapped memory: a guard page, then a stack for signals, then some bytes for the owner. It is mapped rather
// than allocated, so that starting a thread takes nothing from the heap that somebody may be measuring.
class ALTERNATE_STACK {
  public:
    // Null when there is no memory. The pages are not touched.
    static ALTERNATE_STACK* create();
    void destroy();

    // For the calling thread, unless it has one already. A thread that dies must stop using it first.
    void use();
    void stop_using();

    static constexpr std::size_t owner_bytes = 64;
    void* owner_data() { return data; }

  private:
    alignas(16) unsigned char data[owner_bytes];
};

// Gives the calling thread an alternate stack for the rest of its life, unless it has one already.
void give_alternate_stack();

// Whether the address lies on the alternate stack of the calling thread.
bool is_on_alternate_stack(std::uintptr_t address);
