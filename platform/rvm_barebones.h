// The notifier of memory mappings. A library of the suite that maps memory by itself announces it here;
// observers hear of it. Exported.
#pragma once

#include <cstdint>

#include "ktl_mem/export.h"

class KTL_MEM_API RVM_BAREBONES_NOTIFIER {
  public:
    class KTL_MEM_API OBSERVER {
      public:
        virtual ~OBSERVER() = default;
        virtual void mapping_added(const void* address, std::uint64_t size) = 0;
        virtual void mapping_removed(const void* address, std::uint64_t size) = 0;
    };

    // The observer stays the caller's. Adding one twice and removing one that is not there do nothing.
    static bool is_registered(const OBSERVER* observer);
    static void add_observer(OBSERVER* observer);
    static void remove_observer(OBSERVER* observer);

    // What a host calls after it has mapped and before it unmaps. Observers are called in the order of their
    // registration, on this thread, with no lock held that an allocation could need.
    static void announce_added(const void* address, std::uint64_t size);
    static void announce_removed(const void* address, std::uint64_t size);
};
