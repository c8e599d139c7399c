// From a known program counter to its call site, without a lock: every event asks, hardly any inserts.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct MEM_CALL_SITE;

// Readers are inside the gate; one writer at a time (mem_call_site_lock). Arrays that were outgrown are kept
// until clear, since a reader may still be in one; together they are smaller than the one in use.
class MEM_PC_INDEX {
  public:
    MEM_PC_INDEX() { publish(std::make_unique<ARRAY>(first_slots)); }

    MEM_CALL_SITE* find(std::uint64_t pc) const {
        // Acquire pairs with the release of publish and of place: who sees array or key sees what it holds.
        const ARRAY* array = current.load(std::memory_order_acquire);
        for (std::size_t at = array->home(pc);; at = (at + 1) & array->mask) {
            const SLOT& slot = array->slots[at];
            const std::uint64_t key = slot.pc.load(std::memory_order_acquire);
            if (key == pc) return slot.site.load(std::memory_order_relaxed);
            if (key == 0) return nullptr;
        }
    }

    // For the next insertion, which then needs no memory.
    void make_room() {
        const ARRAY& array = *arrays.back();
        if (2 * (used + 1) > array.mask + 1) publish_copy_of(array);
    }

    // pc must be neither 0 nor known.
    void insert(std::uint64_t pc, MEM_CALL_SITE* site) {
        make_room();
        arrays.back()->place(pc, site);
        ++used;
    }

    // Nobody may read meanwhile. The array stays, so that nothing is allocated.
    void clear() {
        arrays.erase(arrays.begin(), arrays.end() - 1);
        arrays.back()->clear();
        used = 0;
    }

  private:
    static constexpr std::size_t first_slots = 1024;

    struct SLOT {
        std::atomic<std::uint64_t> pc{0};
        std::atomic<MEM_CALL_SITE*> site{nullptr};
    };

    struct ARRAY {
        explicit ARRAY(std::size_t count) : mask(count - 1), slots(std::make_unique<SLOT[]>(count)) {}

        std::size_t home(std::uint64_t pc) const {
            return static_cast<std::size_t>((pc * 0x9e3779b97f4a7c15U) >> 32) & mask;
        }
        void clear() {
            for (std::size_t at = 0; at <= mask; ++at) {
                slots[at].pc.store(0, std::memory_order_relaxed);
                slots[at].site.store(nullptr, std::memory_order_relaxed);
            }
        }
        void place(std::uint64_t pc, MEM_CALL_SITE* site) {
            std::size_t at = home(pc);
            while (slots[at].pc.load(std::memory_order_relaxed) != 0) at = (at + 1) & mask;
            slots[at].site.store(site, std::memory_order_relaxed);
            slots[at].pc.store(pc, std::memory_order_release);
        }

        const std::size_t mask;
        const std::unique_ptr<SLOT[]> slots;
    };

    void publish(std::unique_ptr<ARRAY> array) {
        arrays.push_back(std::move(array));
        current.store(arrays.back().get(), std::memory_order_release);
    }

    void publish_copy_of(const ARRAY& outgrown) {
        auto larger = std::make_unique<ARRAY>(2 * (outgrown.mask + 1));
        for (std::size_t at = 0; at <= outgrown.mask; ++at) {
            const std::uint64_t pc = outgrown.slots[at].pc.load(std::memory_order_relaxed);
            if (pc != 0) larger->place(pc, outgrown.slots[at].site.load(std::memory_order_relaxed));
        }
        publish(std::move(larger));
    }

    std::atomic<const ARRAY*> current{nullptr};
    std::vector<std::unique_ptr<ARRAY>> arrays;  // the last one is in use
    std::size_t used = 0;
};
