// What is kept of each live block, by its address: what it is charged to, and its bin and tag. Every
// allocation and every free goes through here.
//
// The map is divided by a hash of the address' neighbourhood into parts, each with a byte lock on a cache
// line of its own, so that events of different addresses hardly ever wait for each other. A part is an array
// of buckets, each of them a cache line with four entries of 16 bytes. An entry lies in the bucket of its
// key's hash, or in one behind it when that is full; so nearly every look-up touches one line. An insertion
// allocates only when the array has to grow, by a quarter, and an erasure brings entries back that had to go
// on, so that no array ever fills up with graves.
//
// An entry does not hold the whole address: part and key together are as good, since they are made from it in
// a way that can be undone. That holds for 47 bits and blocks at multiples of 8; the few others (memory
// mappings that a host announces may lie anywhere, at 0 as well) are kept apart.
//
// All operations but clear may run on any number of threads at once. SOURCE gives and takes the arrays
// (allocate(bytes), release(pointer, bytes)). Where it gives null the array fills up to its last slots.
#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "mem/base/spin_lock.h"

// What an event leaves behind for the block's free: what it is charged to, in the words of who charges, and
// the number of its bin and tag, below 2^27. Either half may be missing.
struct MEM_BLOCK_MARK {
    static constexpr std::uint32_t bins_half = (1U << 27) - 1, charge_half = 1U << 27;
    static constexpr std::uint32_t both_halves = bins_half | charge_half;

    std::uint64_t charge = 0;
    std::uint32_t halves = 0;  // those that are there: the number of bin and tag, and a bit for the charge

    static MEM_BLOCK_MARK of_bins(std::uint32_t bins) { return {0, bins}; }
    static MEM_BLOCK_MARK of_charge(std::uint64_t charge, std::uint32_t bins = 0) {
        return {charge, charge_half | bins};
    }
    bool has_charge() const { return (halves & charge_half) != 0; }
    std::uint32_t bins() const { return halves & bins_half; }  // 0: none
    bool is_empty() const { return halves == 0; }
};

template <class SOURCE, unsigned PART_BITS = 10>
class MEM_ADDRESS_MAP {
  public:
    explicit MEM_ADDRESS_MAP(SOURCE array_source) : source(std::move(array_source)) {}
    ~MEM_ADDRESS_MAP() { clear(); }
    MEM_ADDRESS_MAP(const MEM_ADDRESS_MAP&) = delete;
    MEM_ADDRESS_MAP& operator=(const MEM_ADDRESS_MAP&) = delete;

    // A charge takes the place of one that is there; bins that are there stay. False when there is no memory
    // for the entry.
    bool put(std::uint64_t address, const MEM_BLOCK_MARK& mark) {
        if (!is_usual(address)) return put_apart(address, mark);
        const KEY key = key_of(address);
        PART& part = parts[key.part];
        const std::lock_guard<MEM_SPIN_LOCK> guard(part.lock);
        ARRAY array = array_of(key.part);
        // Grows for an entry that is there already, too, rather than look for it twice.
        if (!array.has_room_beside(part.used)) [[unlikely]]
            array = grow(key.part);
        if (array.count == 0) return false;
        const PLACE place = array.find(key);
        if (place.is_free()) {
            if (!array.has_slot_beside(part.used)) return false;
            ++part.used;
            place.set(key, mark);
        } else {
            place.set(key, joined(place.mark(), mark));
        }
        return true;
    }

    // Takes out and returns the halves that are asked for (of both_halves).
    MEM_BLOCK_MARK take(std::uint64_t address, std::uint32_t halves) {
        if (!is_usual(address)) return take_apart(address, halves);
        const KEY key = key_of(address);
        PART& part = parts[key.part];
        const std::lock_guard<MEM_SPIN_LOCK> guard(part.lock);
        const ARRAY array = array_of(key.part);
        if (array.count == 0) return {};
        const PLACE place = array.find(key);
        if (place.is_free()) return {};
        MEM_BLOCK_MARK mark = place.mark();
        const std::uint32_t left = mark.halves & ~halves;
        if (left == 0) [[likely]] {
            array.erase(place);
            --part.used;
        } else {
            place.set(key, {mark.charge, left});
        }
        mark.halves &= halves;
        return mark;
    }

    // Calls visit(mark) with the entry held, so that a free of that block waits; false when there is none.
    // visit must not come back to this map.
    template <class VISIT>
    bool inspect(std::uint64_t address, VISIT&& visit) {
        if (!is_usual(address)) return inspect_apart(address, visit);
        const KEY key = key_of(address);
        const std::lock_guard<MEM_SPIN_LOCK> guard(parts[key.part].lock);
        const ARRAY array = array_of(key.part);
        if (array.count == 0) return false;
        const PLACE place = array.find(key);
        if (place.is_free()) return false;
        visit(place.mark());
        return true;
    }

    // Brings the lines towards the processor that a look-up of the address will touch. Takes no lock and may
    // be called at any time in the map's life: an array that grows meanwhile only costs the effect.
    void prefetch(std::uint64_t address) const {
        const KEY key = key_of(address);
        __builtin_prefetch(array_of(key.part).home(key.key), 1);
        __builtin_prefetch(&parts[key.part], 1);
    }

    // Bins stay.
    void forget_charges() {
        for (std::uint32_t part = 0; part < part_count; ++part) {
            const std::lock_guard<MEM_SPIN_LOCK> guard(parts[part].lock);
            const ARRAY old = array_of(part);
            if (old.count == 0) continue;
            ARRAY fresh = make_array(old.count);
            if (fresh.count == 0) throw std::bad_alloc();
            parts[part].used =
                fresh.take_over(old, [](MEM_BLOCK_MARK& mark) { mark.halves &= MEM_BLOCK_MARK::bins_half; });
            if (parts[part].used == 0) release(std::exchange(fresh, {}));
            set_array(part, fresh);
            release(old);
        }
        const std::lock_guard<MEM_SPIN_LOCK> guard(apart_lock);
        for (auto& [address, mark] : apart) mark.halves &= MEM_BLOCK_MARK::bins_half;
        std::erase_if(apart, [](const auto& entry) { return entry.second.is_empty(); });
    }

    // Nobody else may use the map meanwhile.
    void clear() {
        for (std::uint32_t part = 0; part < part_count; ++part) {
            release(array_of(part));
            heads[part].store(0, std::memory_order_relaxed);
            parts[part].used = 0;
        }
        apart.clear();
    }

    // Exact only while nobody changes the map.
    std::size_t size() const {
        std::size_t sum = apart.size();
        for (const PART& part : parts) sum += part.used;
        return sum;
    }

  private:
    static constexpr std::uint32_t part_count = 1U << PART_BITS;
    static constexpr unsigned slots = 4;  // of a bucket
    static constexpr std::uint32_t first_buckets = 4;
    static constexpr std::uint32_t page_buckets = 64;

    // An address without its lowest 3 bits is a neighbourhood of a kilobyte and a place in it. The
    // neighbourhood is mixed; part of that chooses the part. Blocks that lie close together share a part:
    // allocators hand them to one thread, and most are freed by the thread that allocated them, so that the
    // lines of a part seldom change processors.
    static constexpr unsigned alignment_bits = 3, place_bits = 7, address_bits = 47;
    static constexpr unsigned neighbourhood_bits = address_bits - alignment_bits - place_bits;
    static constexpr unsigned high_bits = 2;  // of the key, beyond its 32 low ones
    static constexpr unsigned key_bits = address_bits - alignment_bits - PART_BITS;
    static_assert(key_bits <= 32 + high_bits || PART_BITS < 10);

    struct KEY {
        std::uint32_t part;
        std::uint64_t key;
    };
    static bool is_usual(std::uint64_t address) {
        return (address & 7) == 0 && address >> (key_bits_in_use + PART_BITS + alignment_bits) == 0;
    }
    // Tests have few parts, and so fewer addresses that are usual.
    static constexpr unsigned key_bits_in_use = std::min(key_bits, 32 + high_bits);
    static KEY key_of(std::uint64_t address) {
        constexpr unsigned bits = key_bits_in_use + PART_BITS - place_bits;
        constexpr std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
        // Both steps can be undone: an odd factor, and the upper half laid over the lower one.
        std::uint64_t mixed = ((address >> (alignment_bits + place_bits)) * 0x9e3779b97f4a7c15U) & mask;
        mixed ^= mixed >> (bits / 2);
        const std::uint64_t place = (address >> alignment_bits) & ((1U << place_bits) - 1);
        return {static_cast<std::uint32_t>(mixed & (part_count - 1)),
                (mixed >> PART_BITS) << place_bits | place};
    }

    // Low bits of the keys; then number of bins, whether there is a charge, and the high bits of the key;
    // then charges. The slots in use come first; in a free one the second word is 0.
    struct BUCKET {
        static constexpr unsigned high_shift = 28;

        std::uint32_t low[slots];
        std::uint32_t rest[slots];
        std::uint64_t charges[slots];

        // A bit for each slot that has the key. All are compared at once: where in its bucket an entry lies
        // is chance, which no branch can predict.
        unsigned slots_with(std::uint64_t key) const {
            const auto high = static_cast<std::uint32_t>(key >> 32) << high_shift;
            const __m128i in_use = _mm_cmpgt_epi32(load(rest), _mm_setzero_si128());
            const __m128i highs = _mm_and_si128(load(rest), _mm_set1_epi32(3 << high_shift));
            const __m128i same =
                _mm_and_si128(_mm_cmpeq_epi32(load(low), _mm_set1_epi32(static_cast<int>(key))),
                              _mm_cmpeq_epi32(highs, _mm_set1_epi32(static_cast<int>(high))));
            return mask_of(_mm_and_si128(same, in_use));
        }
        unsigned free_slots() const { return mask_of(_mm_cmpeq_epi32(load(rest), _mm_setzero_si128())); }
        unsigned used() const { return static_cast<unsigned>(std::countr_zero(free_slots() | 1U << slots)); }
        std::uint64_t key(unsigned slot) const {
            return std::uint64_t{rest[slot] >> high_shift} << 32 | low[slot];
        }
        MEM_BLOCK_MARK mark(unsigned slot) const {
            return {charges[slot], rest[slot] & MEM_BLOCK_MARK::both_halves};
        }
        void set(unsigned slot, std::uint64_t key, const MEM_BLOCK_MARK& mark) {
            low[slot] = static_cast<std::uint32_t>(key);
            rest[slot] = static_cast<std::uint32_t>(key >> 32) << high_shift | mark.halves;
            charges[slot] = mark.charge;
        }
        void move_to(unsigned slot, const BUCKET& from, unsigned from_slot) {
            low[slot] = from.low[from_slot];
            rest[slot] = from.rest[from_slot];
            charges[slot] = from.charges[from_slot];
        }

      private:
        static __m128i load(const std::uint32_t* words) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(words));
        }
        static unsigned mask_of(__m128i words) {
            return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(words)));
        }
    };
    static_assert(sizeof(BUCKET) == 64);

    struct PLACE {
        BUCKET* bucket;
        unsigned slot;

        bool is_free() const { return bucket->rest[slot] == 0; }
        MEM_BLOCK_MARK mark() const { return bucket->mark(slot); }
        void set(const KEY& key, const MEM_BLOCK_MARK& mark) const { bucket->set(slot, key.key, mark); }
    };

    struct ARRAY {
        BUCKET* buckets;
        std::uint32_t count;

        BUCKET* home(std::uint64_t key) const {
            const std::uint64_t hash = (key * 0x9e3779b97f4a7c15U) >> 32;
            return buckets + (hash * count >> 32);
        }
        BUCKET* after(const BUCKET* bucket) const {
            return bucket + 1 == buckets + count ? buckets : const_cast<BUCKET*>(bucket + 1);
        }
        // At most seven eighths full: look-ups stay short.
        bool has_room_beside(std::size_t used) const {
            return 8 * (used + 1) <= std::size_t{7} * slots * count;
        }
        // A free slot ends a look-up, so the last one stays free.
        bool has_slot_beside(std::size_t used) const { return used + 1 < std::size_t{slots} * count; }
        // How many buckets lie between the home of a key and the one that it is in.
        std::uint32_t way_gone(std::uint64_t key, const BUCKET* bucket) const {
            const auto way = bucket - home(key);
            return static_cast<std::uint32_t>(way < 0 ? way + count : way);
        }

        // Where the key is, or the free slot that it would go to. There must be a free slot.
        PLACE find(const KEY& key) const {
            for (BUCKET* bucket = home(key.key);; bucket = after(bucket)) {
                unsigned found = bucket->slots_with(key.key);
                if (found == 0) found = bucket->free_slots();
                if (found != 0) [[likely]]
                    return {bucket, static_cast<unsigned>(std::countr_zero(found))};
            }
        }

        void erase(const PLACE& place) const {
            const unsigned last = place.bucket->used() - 1;
            place.bucket->move_to(place.slot, *place.bucket, last);
            place.bucket->rest[last] = 0;
            if (last == slots - 1) refill(place.bucket);
        }

        // Brings back one entry that went on because this bucket was full, and so on where that one leaves a
        // gap.
        void refill(BUCKET* gap) const {
            std::uint32_t distance = 1;
            for (BUCKET* from = after(gap);; from = after(from), ++distance) {
                const unsigned used = from->used();
                for (unsigned slot = 0; slot < used; ++slot) {
                    if (way_gone(from->key(slot), from) < distance) continue;
                    gap->move_to(slots - 1, *from, slot);
                    erase({from, slot});
                    return;
                }
                if (used < slots) return;
            }
        }

        // All entries of another array that change leaves something of; returns how many.
        template <class CHANGE>
        std::uint32_t take_over(const ARRAY& from, CHANGE change) const {
            std::uint32_t taken = 0;
            for (std::uint32_t at = 0; at < from.count; ++at) {
                const BUCKET& bucket = from.buckets[at];
                for (unsigned slot = 0, used = bucket.used(); slot < used; ++slot) {
                    MEM_BLOCK_MARK mark = bucket.mark(slot);
                    change(mark);
                    if (mark.is_empty()) continue;
                    const KEY key{0, bucket.key(slot)};
                    find(key).set(key, mark);
                    ++taken;
                }
            }
            return taken;
        }
    };

    struct alignas(64) PART {
        MEM_SPIN_LOCK lock;
        std::uint32_t used = 0;
    };

    static MEM_BLOCK_MARK joined(MEM_BLOCK_MARK there, const MEM_BLOCK_MARK& mark) {
        if (mark.has_charge()) there.charge = mark.charge;
        const std::uint32_t bins = there.bins() != 0 ? there.bins() : mark.bins();
        return {there.charge, ((there.halves | mark.halves) & MEM_BLOCK_MARK::charge_half) | bins};
    }

    // The array of a part as one word, written when it grows, under the part's lock, and else only read: the
    // words of all parts lie together in every processor's cache. Upper bits: the number of buckets, in pages
    // where it is large. Relaxed: the lock orders them, and a prefetch can do with any value.
    static constexpr unsigned count_shift = 47;
    static constexpr std::uint64_t in_pages = std::uint64_t{1} << 16;
    ARRAY array_of(std::uint32_t part) const {
        const std::uint64_t head = heads[part].load(std::memory_order_relaxed);
        const std::uint64_t count = head >> count_shift;
        return {reinterpret_cast<BUCKET*>(head & ((std::uint64_t{1} << count_shift) - 1)),
                static_cast<std::uint32_t>(count < in_pages ? count : (count - in_pages) * page_buckets)};
    }
    void set_array(std::uint32_t part, const ARRAY& array) {
        const std::uint64_t count =
            array.count < in_pages ? array.count : in_pages + array.count / page_buckets;
        heads[part].store(reinterpret_cast<std::uint64_t>(array.buckets) | count << count_shift,
                          std::memory_order_relaxed);
    }

    // A quarter more; whole pages where it is several.
    static std::uint32_t count_after(std::uint32_t count) {
        const std::uint32_t next = std::max(first_buckets, count + std::max(1U, count / 4));
        return next < 3 * page_buckets ? next : (next + page_buckets - 1) / page_buckets * page_buckets;
    }
    // Empty when there is no memory.
    ARRAY make_array(std::uint32_t count) {
        const ARRAY array{static_cast<BUCKET*>(source.allocate(count * sizeof(BUCKET))), count};
        if (array.buckets == nullptr) return {};
        std::memset(static_cast<void*>(array.buckets), 0, count * sizeof(BUCKET));
        return array;
    }
    __attribute__((noinline, cold)) ARRAY grow(std::uint32_t part) {
        const ARRAY outgrown = array_of(part);
        const ARRAY larger = make_array(count_after(outgrown.count));
        if (larger.count == 0) return outgrown;
        larger.take_over(outgrown, [](const MEM_BLOCK_MARK&) {});
        set_array(part, larger);
        release(outgrown);
        return larger;
    }
    void release(const ARRAY& array) {
        if (array.count != 0) source.release(array.buckets, array.count * sizeof(BUCKET));
    }

    __attribute__((noinline, cold)) bool put_apart(std::uint64_t address, const MEM_BLOCK_MARK& mark) try {
        const std::lock_guard<MEM_SPIN_LOCK> guard(apart_lock);
        MEM_BLOCK_MARK& there = apart[address];
        there = joined(there, mark);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
    __attribute__((noinline, cold)) MEM_BLOCK_MARK take_apart(std::uint64_t address, std::uint32_t halves) {
        const std::lock_guard<MEM_SPIN_LOCK> guard(apart_lock);
        const auto found = apart.find(address);
        if (found == apart.end()) return {};
        MEM_BLOCK_MARK taken = found->second;
        taken.halves &= halves;
        found->second.halves &= ~halves;
        if (found->second.is_empty()) apart.erase(found);
        return taken;
    }
    template <class VISIT>
    bool inspect_apart(std::uint64_t address, VISIT& visit) {
        const std::lock_guard<MEM_SPIN_LOCK> guard(apart_lock);
        const auto found = apart.find(address);
        if (found == apart.end()) return false;
        visit(found->second);
        return true;
    }

    SOURCE source;
    MEM_SPIN_LOCK apart_lock;
    std::unordered_map<std::uint64_t, MEM_BLOCK_MARK> apart;
    alignas(64) std::atomic<std::uint64_t> heads[part_count]{};
    PART parts[part_count];
};
