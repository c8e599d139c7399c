// A map from block addresses to a small value, for tables that every allocation and every free goes through.
//
// The map is divided by a hash of the address into parts, each with a byte lock on a cache line of its own,
// so that events of different addresses hardly ever wait for each other. A part is one array with linear
// probing: a look-up touches one or two lines, an insertion allocates only when the array has to grow, and an
// erasure moves the entries behind it back, so that no array ever fills up with graves.
//
// All operations but clear may run on any number of threads at once. SOURCE gives and takes the arrays
// (allocate(bytes), release(pointer, bytes)); what it throws leaves the map unchanged.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <type_traits>
#include <utility>

#include "mem/base/spin_lock.h"

template <class VALUE, class SOURCE, std::size_t PARTS = 1024>
class MEM_ADDRESS_MAP {
    static_assert(std::is_trivially_copyable_v<VALUE> && (PARTS & (PARTS - 1)) == 0);

  public:
    explicit MEM_ADDRESS_MAP(SOURCE array_source) : source(std::move(array_source)) {}
    ~MEM_ADDRESS_MAP() { clear(); }
    MEM_ADDRESS_MAP(const MEM_ADDRESS_MAP&) = delete;
    MEM_ADDRESS_MAP& operator=(const MEM_ADDRESS_MAP&) = delete;

    // Stores the value, over one that is there. Address 0 never has an entry.
    void insert_or_assign(std::uint64_t address, const VALUE& value) { put(address, value, true); }

    // Stores the value unless the address has one.
    void insert(std::uint64_t address, const VALUE& value) { put(address, value, false); }

    // Takes the entry out; false when there is none, and then out is left alone.
    bool retire(std::uint64_t address, VALUE& out) {
        return with_slot(address, [&](PART& part, const ARRAY& array, std::size_t at) {
            out = array.slots[at].value;
            array.erase(at);
            --part.used;
        });
    }

    // Calls visit(value) with the entry held, so that a retirement of that block waits; false when there is
    // none. visit must not come back to this map.
    template <class VISIT>
    bool inspect(std::uint64_t address, VISIT&& visit) {
        return with_slot(address,
                         [&](PART&, const ARRAY& array, std::size_t at) { visit(array.slots[at].value); });
    }

    // Brings the line towards the processor that a look-up of the address will touch. Takes no lock and may
    // be called at any time in the map's life: an array that grows meanwhile only costs the effect.
    void prefetch(std::uint64_t address) const {
        const std::uint64_t hash = mix(address);
        const ARRAY array = parts[part_index(hash)].array();
        __builtin_prefetch(array.slots + array.home(hash), 1);
    }

    // Nobody else may use the map meanwhile.
    void clear() {
        for (PART& part : parts) {
            release(part.array());
            part.set_array({});
            part.used = 0;
        }
    }

    // Exact only while nobody changes the map.
    std::size_t size() const {
        std::size_t sum = 0;
        for (const PART& part : parts) sum += part.used;
        return sum;
    }

  private:
    static constexpr std::size_t first_slots = 16;
    static constexpr std::size_t nowhere = SIZE_MAX;

    struct SLOT {
        std::uint64_t address;  // 0 when the slot is free
        VALUE value;
    };

    // An open-addressing array of mask + 1 slots.
    struct ARRAY {
        SLOT* slots = nullptr;
        std::size_t mask = 0;

        std::size_t home(std::uint64_t hash) const { return static_cast<std::size_t>(hash) & mask; }

        std::size_t find(std::uint64_t hash, std::uint64_t address) const {
            if (slots == nullptr) return nowhere;
            for (std::size_t at = home(hash);; at = (at + 1) & mask) {
                if (slots[at].address == address) return at;
                if (slots[at].address == 0) return nowhere;
            }
        }

        // Moves back what a probe from its home would no longer reach across the freed slot.
        void erase(std::size_t hole) const {
            for (std::size_t at = (hole + 1) & mask; slots[at].address != 0; at = (at + 1) & mask) {
                const std::size_t wanted = home(mix(slots[at].address));
                if (((at - wanted) & mask) < ((at - hole) & mask)) continue;
                slots[hole] = slots[at];
                hole = at;
            }
            slots[hole].address = 0;
        }

        void place(const SLOT& slot) const {
            std::size_t at = home(mix(slot.address));
            while (slots[at].address != 0) at = (at + 1) & mask;
            slots[at] = slot;
        }
    };

    // The array is changed under the lock. Its two words are atomic and relaxed for the sake of a prefetch,
    // which reads them without the lock and can do with any values.
    struct alignas(64) PART {
        MEM_SPIN_LOCK lock;
        std::size_t used = 0;
        std::atomic<SLOT*> slots{nullptr};
        std::atomic<std::size_t> mask{0};

        ARRAY array() const {
            return {slots.load(std::memory_order_relaxed), mask.load(std::memory_order_relaxed)};
        }
        void set_array(const ARRAY& next) {
            slots.store(next.slots, std::memory_order_relaxed);
            mask.store(next.mask, std::memory_order_relaxed);
        }
        // At most three quarters full: probes stay short, and a free slot always ends them.
        bool is_full(const ARRAY& array) const {
            return array.slots == nullptr || 4 * (used + 1) > 3 * (array.mask + 1);
        }
    };

    // Spreads all bits of the address over the upper half, which is then folded down: the parts take the
    // upper bits, the slots the lower ones.
    static std::uint64_t mix(std::uint64_t address) {
        const std::uint64_t product = address * 0x9e3779b97f4a7c15U;
        return product ^ (product >> 32);
    }
    static std::size_t part_index(std::uint64_t hash) {
        return static_cast<std::size_t>(hash >> 40) & (PARTS - 1);
    }

    template <class ACTION>
    bool with_slot(std::uint64_t address, ACTION&& action) {
        const std::uint64_t hash = mix(address);
        PART& part = parts[part_index(hash)];
        const std::lock_guard<MEM_SPIN_LOCK> guard(part.lock);
        const ARRAY array = part.array();
        const std::size_t at = array.find(hash, address);
        if (at == nowhere || address == 0) return false;
        action(part, array, at);
        return true;
    }

    void put(std::uint64_t address, const VALUE& value, bool overwrite) {
        if (address == 0) return;
        const std::uint64_t hash = mix(address);
        PART& part = parts[part_index(hash)];
        const std::lock_guard<MEM_SPIN_LOCK> guard(part.lock);
        const ARRAY array = part.array();
        const std::size_t at = array.find(hash, address);
        if (at != nowhere) {
            if (overwrite) array.slots[at].value = value;
            return;
        }
        if (part.is_full(array)) [[unlikely]]
            grow(part);
        part.array().place({address, value});
        ++part.used;
    }

    __attribute__((noinline, cold)) void grow(PART& part) {
        const ARRAY outgrown = part.array();
        const std::size_t count = outgrown.slots == nullptr ? first_slots : 2 * (outgrown.mask + 1);
        const ARRAY larger{static_cast<SLOT*>(source.allocate(count * sizeof(SLOT))), count - 1};
        std::memset(static_cast<void*>(larger.slots), 0, count * sizeof(SLOT));
        if (outgrown.slots != nullptr)
            for (std::size_t at = 0; at <= outgrown.mask; ++at)
                if (outgrown.slots[at].address != 0) larger.place(outgrown.slots[at]);
        part.set_array(larger);
        release(outgrown);
    }

    void release(const ARRAY& array) {
        if (array.slots != nullptr) source.release(array.slots, (array.mask + 1) * sizeof(SLOT));
    }

    SOURCE source;
    PART parts[PARTS];
};
