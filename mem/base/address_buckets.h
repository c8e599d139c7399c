// An array of buckets, each of them a cache line with four entries: a key and what is kept under it. An entry
// lies in the bucket of its key's hash, or in one behind it when that is full, so that nearly every look-up
// touches one line. A bucket that an entry has gone past knows it: an erasure there brings one back, so that
// no array ever fills up with graves, and in any other it touches no second line.
#pragma once

#include <emmintrin.h>

#include <bit>
#include <cstddef>
#include <cstdint>

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

// Low bits of the keys, which have 34; then the number of bins, whether there is a charge, and the high bits
// of the key; then charges. The slots in use come first; in a free one the second word is 0.
struct MEM_ADDRESS_BUCKET {
    static constexpr unsigned slots = 4, last_slot = slots - 1;
    static constexpr unsigned high_bits = 2;  // of the key, beyond its 32 low ones

    std::uint32_t low[slots];
    std::uint32_t rest[slots];
    std::uint64_t charges[slots];

    // A bit for each slot that has the key. All are compared at once: where in its bucket an entry lies is
    // chance, which no branch can predict.
    unsigned slots_with(std::uint64_t key) const {
        const __m128i highs =
            _mm_and_si128(load(rest), _mm_set1_epi32(static_cast<int>(used_bit | high_mask)));
        const __m128i same_low = _mm_cmpeq_epi32(load(low), _mm_set1_epi32(static_cast<int>(key)));
        const __m128i same_high =
            _mm_cmpeq_epi32(highs, _mm_set1_epi32(static_cast<int>(used_and_high(key))));
        return mask_of(_mm_and_si128(same_low, same_high));
    }
    unsigned free_slots() const { return mask_of(_mm_cmpeq_epi32(load(rest), _mm_setzero_si128())); }
    unsigned used() const { return static_cast<unsigned>(std::countr_zero(free_slots() | 1U << slots)); }

    std::uint64_t key(unsigned slot) const {
        return std::uint64_t{(rest[slot] & high_mask) >> high_shift} << 32 | low[slot];
    }
    MEM_BLOCK_MARK mark(unsigned slot) const {
        return {charges[slot], rest[slot] & MEM_BLOCK_MARK::both_halves};
    }
    void set(unsigned slot, std::uint64_t key, const MEM_BLOCK_MARK& mark) {
        low[slot] = static_cast<std::uint32_t>(key);
        rest[slot] = (rest[slot] & passed_bit) | used_and_high(key) | mark.halves;
        charges[slot] = mark.charge;
    }
    void move_to(unsigned slot, const MEM_ADDRESS_BUCKET& from, unsigned from_slot) {
        low[slot] = from.low[from_slot];
        rest[slot] = from.rest[from_slot] & ~passed_bit;
        charges[slot] = from.charges[from_slot];
    }

    // An entry has gone on because this bucket was full, which it then still is.
    bool is_passed() const { return (rest[last_slot] & passed_bit) != 0; }
    void note_passed() { rest[last_slot] |= passed_bit; }

  private:
    static constexpr unsigned high_shift = 28;
    static constexpr std::uint32_t high_mask = 3U << high_shift, used_bit = 1U << 30, passed_bit = 1U << 31;

    static std::uint32_t used_and_high(std::uint64_t key) {
        return used_bit | static_cast<std::uint32_t>(key >> 32) << high_shift;
    }
    static __m128i load(const std::uint32_t* words) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(words));
    }
    static unsigned mask_of(__m128i words) {
        return static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(words)));
    }
};
static_assert(sizeof(MEM_ADDRESS_BUCKET) == 64);

// Refers to buckets that somebody else keeps.
struct MEM_ADDRESS_BUCKETS {
    using BUCKET = MEM_ADDRESS_BUCKET;

    BUCKET* buckets;
    std::uint32_t count;

    struct PLACE {
        BUCKET* bucket;
        unsigned slot;

        bool is_free() const { return bucket->rest[slot] == 0; }
        MEM_BLOCK_MARK mark() const { return bucket->mark(slot); }
    };

    BUCKET* home(std::uint64_t key) const {
        const std::uint64_t hash = (key * 0x9e3779b97f4a7c15U) >> 32;
        return buckets + (hash * count >> 32);
    }

    // So many entries keep look-ups short: the buckets are seven eighths full.
    std::int32_t usual_capacity() const { return static_cast<std::int32_t>(count * BUCKET::slots * 7 / 8); }
    // A free slot ends a look-up, so the last one stays free.
    std::int32_t last_capacity() const { return static_cast<std::int32_t>(count * BUCKET::slots) - 1; }

    // Where the key is, or the free slot that it would go to. There must be a free slot.
    PLACE find(std::uint64_t key) const {
        for (BUCKET* bucket = home(key);; bucket = after(bucket)) {
            unsigned found = bucket->slots_with(key);
            if (found == 0) found = bucket->free_slots();
            if (found != 0) [[likely]]
                return {bucket, static_cast<unsigned>(std::countr_zero(found))};
        }
    }

    // Into the free slot that was found for the key.
    void insert(const PLACE& place, std::uint64_t key, const MEM_BLOCK_MARK& mark) const {
        for (BUCKET* full = home(key); full != place.bucket; full = after(full)) full->note_passed();
        place.bucket->set(place.slot, key, mark);
    }

    void erase(const PLACE& place) const {
        const unsigned last = place.bucket->used() - 1;
        const bool is_passed = place.bucket->is_passed();
        place.bucket->move_to(place.slot, *place.bucket, last);
        place.bucket->rest[last] = 0;
        if (is_passed) [[unlikely]]
            refill(place.bucket);
    }

    // All entries of another array that change leaves something of; returns how many.
    template <class CHANGE>
    std::int32_t take_over(const MEM_ADDRESS_BUCKETS& from, CHANGE change) const {
        std::int32_t taken = 0;
        for (std::uint32_t at = 0; at < from.count; ++at) {
            const BUCKET& bucket = from.buckets[at];
            for (unsigned slot = 0, used = bucket.used(); slot < used; ++slot) {
                MEM_BLOCK_MARK mark = bucket.mark(slot);
                change(mark);
                if (mark.is_empty()) continue;
                const std::uint64_t key = bucket.key(slot);
                insert(find(key), key, mark);
                ++taken;
            }
        }
        return taken;
    }

  private:
    BUCKET* after(const BUCKET* bucket) const {
        return bucket + 1 == buckets + count ? buckets : const_cast<BUCKET*>(bucket + 1);
    }
    // How many buckets lie between the home of a key and the one that it is in.
    std::uint32_t way_gone(std::uint64_t key, const BUCKET* bucket) const {
        const auto way = bucket - home(key);
        return static_cast<std::uint32_t>(way < 0 ? way + count : way);
    }

    // Brings back one entry that has gone past this bucket, and so on where that one leaves a gap.
    void refill(BUCKET* gap) const {
        std::uint32_t distance = 1;
        for (BUCKET* from = after(gap);; from = after(from), ++distance) {
            for (unsigned slot = 0, used = from->used(); slot < used; ++slot) {
                if (way_gone(from->key(slot), from) < distance) continue;
                gap->move_to(BUCKET::last_slot, *from, slot);
                gap->note_passed();  // perhaps by others, too
                erase({from, slot});
                return;
            }
            if (!from->is_passed()) return;
        }
    }
};
