// The tracker's ear at the notifier of memory mappings.
#pragma once

#include "platform/rvm_barebones.h"

class MEM_RVM_OBSERVER : public RVM_BAREBONES_NOTIFIER::OBSERVER {
  public:
    ~MEM_RVM_OBSERVER() override;
    void mapping_added(const void* address, std::uint64_t size) override;
    void mapping_removed(const void* address, std::uint64_t size) override;

    // Both do nothing when it is so already.
    void enlist();
    void retire();
};
