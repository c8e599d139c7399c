// KEPT_PROGRAMS: the functions whose frame programs were run last, each as far as it was run. A program that
// starts meets its return addresses by and by, most of them further on in a function that it has just met,
// and large functions have programs of thousands of bytes. Of modules that are never unloaded alone.
#pragma once

#include <cstdint>

#include "platform/unwind/frame_program.h"

namespace unwind {

class KEPT_PROGRAMS {
  public:
    // For one thread at a time: who finds another at it, or comes from a signal handler that interrupts one,
    // goes without.
    class SCOPE {
      public:
        SCOPE();
        ~SCOPE();
        SCOPE(const SCOPE&) = delete;
        SCOPE& operator=(const SCOPE&) = delete;

        bool is_open() const { return is_open_; }
        // The program that can be run to address; null when no information describes it.
        FRAME_PROGRAM* program_for(std::uint64_t address) const;

      private:
        const bool is_open_;
    };
};

}  // namespace unwind
