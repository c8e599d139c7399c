// A map from block addresses to a small value, for tables that every allocation and every free goes through.
//
// The map is divided by a hash of the address, without its lowest bits, into parts, each with a byte lock on
// a cache line of its own, so that events of different addresses hardly ever wait for each other. A part is
// an array of buckets, each of them a cache line with room for four entries. An entry lies in the bucket of
// its hash, or in one behind it when that is full; so nearly every look-up touches one line. An insertion
// allocates only when the array has to grow, and an erasure brings entries back that had to go on, so that no
// array ever fills up with graves.
//
// All operations but clear may run on any number of threads at once. SOURCE gives and takes the arrays
// (allocate(bytes), release(pointer, bytes)); what it throws leaves the map unchanged.
#pragma once

#include <emmintrin.h>

#include <atomic>
#include <bit>
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
        return with_entry(address, [&](PART& part, const ARRAY& array, const PLACE& place) {
            out = place.bucket->values[place.slot];
            array.erase(place);
            --part.used;
        });
    }

    // Calls visit(value) with the entry held, so that a retirement of that block waits; false when there is
    // none. visit must not come back to this map.
    template <class VISIT>
    bool inspect(std::uint64_t address, VISIT&& visit) {
        return with_entry(address, [&](PART&, const ARRAY&, const PLACE& place) {
            visit(place.bucket->values[place.slot]);
        });
    }

    // Brings the lines towards the processor that a look-up of the address will touch. Takes no lock and may
    // be called at any time in the map's life: an array that grows meanwhile only costs the effect.
    void prefetch(std::uint64_t address) const {
        const std::uint64_t hash = mix(address);
        const std::size_t part = part_index(address);
        __builtin_prefetch(array_of(part).home(hash), 1);
        __builtin_prefetch(&parts[part], 1);
    }

    // Nobody else may use the map meanwhile.
    void clear() {
        for (std::size_t part = 0; part < PARTS; ++part) {
            release(array_of(part));
            heads[part].store(0, std::memory_order_relaxed);
            parts[part].used = 0;
        }
    }

    // Exact only while nobody changes the map.
    std::size_t size() const {
        std::size_t sum = 0;
        for (const PART& part : parts) sum += part.used;
        return sum;
    }

  private:
    static constexpr unsigned bucket_slots = 4;
    static constexpr std::size_t first_buckets = 4;
    static constexpr unsigned neighbourhood_shift = 10;

    // The slots in use come first; a free one has the address 0.
    struct BUCKET {
        std::uint64_t addresses[bucket_slots];
        VALUE values[bucket_slots];

        // A bit for each slot that has the address. All four are compared at once: where in its bucket an
        // entry lies is chance, which no branch can predict.
        unsigned slots_with(std::uint64_t address) const {
            return pair_with(addresses, address) | pair_with(addresses + 2, address) << 2;
        }
        unsigned used() const {
            return static_cast<unsigned>(std::countr_zero(slots_with(0) | 1U << bucket_slots));
        }
        void move_to(unsigned slot, BUCKET* from, unsigned from_slot) {
            addresses[slot] = from->addresses[from_slot];
            values[slot] = from->values[from_slot];
        }

      private:
        static unsigned pair_with(const std::uint64_t* pair, std::uint64_t address) {
            const __m128i wanted = _mm_set1_epi64x(static_cast<long long>(address));
            const __m128i halves =
                _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pair)), wanted);
            const __m128i wholes = _mm_and_si128(halves, _mm_shuffle_epi32(halves, 0xb1));
            return static_cast<unsigned>(_mm_movemask_pd(_mm_castsi128_pd(wholes)));
        }
    };

    struct PLACE {
        BUCKET* bucket;
        unsigned slot;

        std::uint64_t address() const { return bucket->addresses[slot]; }
        void set(std::uint64_t address, const VALUE& value) const {
            bucket->addresses[slot] = address;
            bucket->values[slot] = value;
        }
    };

    // mask + 1 buckets, or none.
    struct ARRAY {
        BUCKET* buckets;
        std::size_t mask;

        std::size_t bucket_count() const { return buckets == nullptr ? 0 : mask + 1; }
        BUCKET* home(std::uint64_t hash) const { return buckets + (static_cast<std::size_t>(hash) & mask); }
        BUCKET* after(const BUCKET* bucket) const {
            return buckets + (static_cast<std::size_t>(bucket + 1 - buckets) & mask);
        }
        // At most three quarters full: look-ups stay short, and a free slot always ends them.
        bool has_room_beside(std::size_t used) const {
            return 4 * (used + 1) <= 3 * bucket_slots * bucket_count();
        }
        // How many buckets lie between the home of an address and the one that it is in.
        std::size_t way_gone(std::uint64_t address, const BUCKET* bucket) const {
            return static_cast<std::size_t>(bucket - home(mix(address))) & mask;
        }

        // Where the address is, or the free slot that it would go to. There must be a free slot.
        PLACE find(std::uint64_t hash, std::uint64_t address) const {
            for (BUCKET* bucket = home(hash);; bucket = after(bucket)) {
                unsigned slots = bucket->slots_with(address);
                if (slots == 0) slots = bucket->slots_with(0);
                if (slots != 0) [[likely]]
                    return {bucket, static_cast<unsigned>(std::countr_zero(slots))};
            }
        }

        void erase(const PLACE& place) const {
            const unsigned last = place.bucket->used() - 1;
            place.bucket->move_to(place.slot, place.bucket, last);
            place.bucket->addresses[last] = 0;
            if (last == bucket_slots - 1) refill(place.bucket);
        }

        // Brings back one entry that went on because this bucket was full, and so on where that one leaves a
        // gap.
        void refill(BUCKET* gap) const {
            std::size_t distance = 1;
            for (BUCKET* from = after(gap);; from = after(from), ++distance) {
                const unsigned used = from->used();
                for (unsigned slot = 0; slot < used; ++slot) {
                    if (way_gone(from->addresses[slot], from) < distance) continue;
                    gap->move_to(bucket_slots - 1, from, slot);
                    erase({from, slot});
                    return;
                }
                if (used < bucket_slots) return;
            }
        }
    };

    struct alignas(64) PART {
        MEM_SPIN_LOCK lock;
        std::size_t used = 0;
    };

    // The array of a part as one word, written when it grows, under the part's lock, and else only read: the
    // words of all parts lie together in every processor's cache. Upper byte: log2 of the number of buckets.
    // Relaxed: the lock orders them, and a prefetch can do with any value.
    static constexpr unsigned count_shift = 56;
    ARRAY array_of(std::size_t part) const {
        const std::uint64_t head = heads[part].load(std::memory_order_relaxed);
        auto* buckets = reinterpret_cast<BUCKET*>(head & ((std::uint64_t{1} << count_shift) - 1));
        return {buckets, (std::size_t{1} << (head >> count_shift)) - 1};
    }
    void set_array(std::size_t part, const ARRAY& array) {
        const auto log2_count = static_cast<std::uint64_t>(std::countr_one(array.mask));
        heads[part].store(reinterpret_cast<std::uint64_t>(array.buckets) | log2_count << count_shift,
                          std::memory_order_relaxed);
    }

    // Spreads all bits over the upper half, which is then folded down. The parts take upper bits, the buckets
    // lower ones. Blocks that lie close together share a part: allocators hand them to one thread, and most
    // are freed by the thread that allocated them, so that the lines of a part seldom change processors.
    static std::uint64_t mix(std::uint64_t address) {
        const std::uint64_t product = address * 0x9e3779b97f4a7c15U;
        return product ^ (product >> 32);
    }
    static std::size_t part_index(std::uint64_t address) {
        return static_cast<std::size_t>(mix(address >> neighbourhood_shift) >> 40) & (PARTS - 1);
    }

    template <class ACTION>
    bool with_entry(std::uint64_t address, ACTION&& action) {
        const std::uint64_t hash = mix(address);
        PART& part = parts[part_index(address)];
        const std::lock_guard<MEM_SPIN_LOCK> guard(part.lock);
        const ARRAY array = array_of(part_index(address));
        if (array.buckets == nullptr || address == 0) return false;
        const PLACE place = array.find(hash, address);
        if (place.address() == 0) return false;
        action(part, array, place);
        return true;
    }

    void put(std::uint64_t address, const VALUE& value, bool overwrite) {
        if (address == 0) return;
        const std::uint64_t hash = mix(address);
        PART& part = parts[part_index(address)];
        const std::lock_guard<MEM_SPIN_LOCK> guard(part.lock);
        ARRAY array = array_of(part_index(address));
        // Grows for an entry that is there already, too, rather than look for it twice.
        if (!array.has_room_beside(part.used)) [[unlikely]]
            array = grow(part_index(address));
        const PLACE place = array.find(hash, address);
        if (place.address() == 0) {
            ++part.used;
        } else if (!overwrite) {
            return;
        }
        place.set(address, value);
    }

    __attribute__((noinline, cold)) ARRAY grow(std::size_t part) {
        const ARRAY outgrown = array_of(part);
        const std::size_t count = outgrown.buckets == nullptr ? first_buckets : 2 * outgrown.bucket_count();
        const ARRAY larger{static_cast<BUCKET*>(source.allocate(count * sizeof(BUCKET))), count - 1};
        std::memset(static_cast<void*>(larger.buckets), 0, count * sizeof(BUCKET));
        for (std::size_t at = 0; at < outgrown.bucket_count(); ++at) {
            const BUCKET& bucket = outgrown.buckets[at];
            for (unsigned slot = 0; slot < bucket.used(); ++slot) {
                const std::uint64_t address = bucket.addresses[slot];
                larger.find(mix(address), address).set(address, bucket.values[slot]);
            }
        }
        set_array(part, larger);
        release(outgrown);
        return larger;
    }

    void release(const ARRAY& array) {
        if (array.buckets != nullptr) source.release(array.buckets, array.bucket_count() * sizeof(BUCKET));
    }

    SOURCE source;
    alignas(64) std::atomic<std::uint64_t> heads[PARTS]{};
    PART parts[PARTS];
};
