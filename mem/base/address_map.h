// What is kept of each live block, by its address: what it is charged to, and its bin and tag. Every
// allocation and every free goes through here.
//
// The map is divided by a hash of the address' neighbourhood into parts, each with a lock on a cache line of
// its own (mem/base/turns.h): most are used by one thread alone, which needs no locked instruction for them.
// A part is an array of buckets (mem/base/address_buckets.h). An insertion allocates only when the array has
// to grow, by a quarter.
//
// An entry does not hold the whole address: part and key together are as good, since they are made from it in
// a way that can be undone. That holds for 47 bits and blocks at multiples of 8; the few others (memory
// mappings that a host announces may lie anywhere, at 0 as well) are kept apart.
//
// All operations but clear may run on any number of threads at once, each within a turn, which they may step
// out of. SOURCE gives and takes the arrays (allocate(bytes), release(pointer, bytes)). Where it gives null
// the array fills up to its last slots.
#pragma once

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

#include "mem/base/address_buckets.h"
#include "mem/base/spin_lock.h"
#include "mem/base/turns.h"
#include "platform/mapped_memory.h"

template <class SOURCE, unsigned PART_BITS = 12>
class MEM_ADDRESS_MAP {
  public:
    explicit MEM_ADDRESS_MAP(SOURCE array_source) : source(std::move(array_source)) {
        if (parts == nullptr) throw std::bad_alloc();
    }
    ~MEM_ADDRESS_MAP() {
        clear();
        unmap_memory(parts, sizeof *parts);
    }
    MEM_ADDRESS_MAP(const MEM_ADDRESS_MAP&) = delete;
    MEM_ADDRESS_MAP& operator=(const MEM_ADDRESS_MAP&) = delete;

    // A charge takes the place of one that is there; bins that are there stay. False when there is no memory
    // for the entry.
    bool put(MEM_TURN& turn, std::uint64_t address, const MEM_BLOCK_MARK& mark) {
        if (!is_usual(address)) return put_apart(address, mark);
        const KEY key = key_of(address);
        PART& part = parts->of[key.part];
        const MEM_KEPT_GUARD guard(part.lock, turn);
        // Grows for an entry that is there already, too, rather than look for it twice.
        if (part.room <= 0 && !make_room(key.part)) [[unlikely]]
            return put_at_last(key, mark);
        const ARRAY array = array_of(key.part);
        const ARRAY::PLACE place = array.find(key.key);
        if (place.is_free()) [[likely]] {
            --part.room;
            array.insert(place, key.key, mark);
        } else {
            place.bucket->set(place.slot, key.key, joined(place.mark(), mark));
        }
        return true;
    }

    // Takes out and returns the halves that are asked for (of both_halves).
    MEM_BLOCK_MARK take(MEM_TURN& turn, std::uint64_t address, std::uint32_t halves) {
        if (!is_usual(address)) return take_apart(address, halves);
        const KEY key = key_of(address);
        PART& part = parts->of[key.part];
        const MEM_KEPT_GUARD guard(part.lock, turn);
        const ARRAY array = array_of(key.part);
        if (array.count == 0) [[unlikely]]
            return {};
        const ARRAY::PLACE place = array.find(key.key);
        if (place.is_free()) return {};
        MEM_BLOCK_MARK mark = place.mark();
        const std::uint32_t left = mark.halves & ~halves;
        if (left == 0) [[likely]] {
            array.erase(place);
            ++part.room;
        } else {
            place.bucket->set(place.slot, key.key, {mark.charge, left});
        }
        mark.halves &= halves;
        return mark;
    }

    // Empty when there is no entry.
    MEM_BLOCK_MARK look_up(MEM_TURN& turn, std::uint64_t address) {
        if (!is_usual(address)) return look_up_apart(address);
        const KEY key = key_of(address);
        const MEM_KEPT_GUARD guard(parts->of[key.part].lock, turn);
        const ARRAY array = array_of(key.part);
        if (array.count == 0) return {};
        const ARRAY::PLACE place = array.find(key.key);
        return place.is_free() ? MEM_BLOCK_MARK{} : place.mark();
    }

    // Brings the lines towards the processor that a look-up of the address will touch. Takes no lock and may
    // be called at any time in the map's life: an array that grows meanwhile only costs the effect.
    void prefetch(std::uint64_t address) const {
        const KEY key = key_of(address);
        __builtin_prefetch(array_of(key.part).home(key.key), 1);
        __builtin_prefetch(&parts->of[key.part], 1);
    }

    // Bins stay.
    void forget_charges() {
        MEM_TURN turn;
        for (std::uint32_t part = 0; part < part_count; ++part) {
            const MEM_KEPT_GUARD guard(parts->of[part].lock, turn);
            const ARRAY old = array_of(part);
            if (old.count == 0) continue;
            ARRAY fresh = make_array(old.count);
            if (fresh.count == 0) throw std::bad_alloc();
            const std::int32_t left =
                fresh.take_over(old, [](MEM_BLOCK_MARK& mark) { mark.halves &= MEM_BLOCK_MARK::bins_half; });
            if (left == 0) release(std::exchange(fresh, {}));
            set_array(part, fresh, left);
            release(old);
        }
        const std::lock_guard<MEM_SPIN_LOCK> guard(apart_lock);
        for (auto& [address, mark] : apart) mark.halves &= MEM_BLOCK_MARK::bins_half;
        std::erase_if(apart, [](const auto& entry) { return entry.second.is_empty(); });
    }

    // Nobody else may use the map meanwhile.
    void clear() {
        for (std::uint32_t part = 0; part < part_count; ++part) {
            if (array_of(part).count == 0) continue;
            release(array_of(part));
            set_array(part, {}, 0);
        }
        apart.clear();
    }

    // Exact only while nobody changes the map.
    std::size_t size() const {
        std::size_t sum = apart.size();
        for (std::uint32_t part = 0; part < part_count; ++part) sum += static_cast<std::size_t>(used(part));
        return sum;
    }

  private:
    static constexpr std::uint32_t part_count = 1U << PART_BITS;
    using ARRAY = MEM_ADDRESS_BUCKETS;
    using BUCKET = MEM_ADDRESS_BUCKET;
    static constexpr std::uint32_t first_buckets = 2;
    static constexpr std::uint32_t page_buckets = 64;

    // An address without its lowest 3 bits is a neighbourhood of four kilobytes and a place in it. The
    // neighbourhood is mixed; part of that chooses the part. Blocks that lie close together share a part:
    // allocators hand them to one thread, and most are freed by the thread that allocated them, so that the
    // lines of a part seldom change processors.
    static constexpr unsigned alignment_bits = 3, place_bits = 9, address_bits = 47;
    static constexpr unsigned neighbourhood_bits = address_bits - alignment_bits - place_bits;
    static constexpr unsigned most_key_bits = 32 + BUCKET::high_bits;
    static constexpr unsigned key_bits = address_bits - alignment_bits - PART_BITS;
    static_assert(key_bits <= most_key_bits || PART_BITS < 10);

    struct KEY {
        std::uint32_t part;
        std::uint64_t key;
    };
    static bool is_usual(std::uint64_t address) {
        return (address & 7) == 0 && address >> (key_bits_in_use + PART_BITS + alignment_bits) == 0;
    }
    // Tests have few parts, and so fewer addresses that are usual.
    static constexpr unsigned key_bits_in_use = std::min(key_bits, most_key_bits);
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

    // The lock and what is told beside a look-up are on one line, and the entry on another.
    struct alignas(64) PART {
        MEM_KEPT_LOCK lock;
        std::int32_t room = 0;  // entries until the array should grow; below 0 where it could not
    };

    static MEM_BLOCK_MARK joined(MEM_BLOCK_MARK there, const MEM_BLOCK_MARK& mark) {
        if (mark.has_charge()) there.charge = mark.charge;
        const std::uint32_t bins = there.bins() != 0 ? there.bins() : mark.bins();
        return {there.charge, ((there.halves | mark.halves) & MEM_BLOCK_MARK::charge_half) | bins};
    }

    // The array of a part as one word, written when it grows, under the part's lock, and else only read: the
    // words of all parts lie together in every processor's cache. Upper bits: the number of buckets, enough
    // for half a million blocks in each part. Relaxed: the lock orders them, and a prefetch can do with any
    // value.
    static constexpr unsigned count_shift = 47;
    static constexpr std::uint32_t most_buckets = (1U << (64 - count_shift)) - page_buckets;
    ARRAY array_of(std::uint32_t part) const {
        const std::uint64_t head = parts->heads[part].load(std::memory_order_relaxed);
        return {reinterpret_cast<BUCKET*>(head & ((std::uint64_t{1} << count_shift) - 1)),
                static_cast<std::uint32_t>(head >> count_shift)};
    }
    void set_array(std::uint32_t part, const ARRAY& array, std::int32_t entries) {
        const auto address = reinterpret_cast<std::uint64_t>(array.buckets);
        parts->heads[part].store(address | std::uint64_t{array.count} << count_shift,
                                 std::memory_order_relaxed);
        parts->of[part].room = array.usual_capacity() - entries;
    }
    std::int32_t used(std::uint32_t part) const {
        return array_of(part).usual_capacity() - parts->of[part].room;
    }

    // A quarter more; whole pages where it is several.
    static std::uint32_t count_after(std::uint32_t count) {
        const std::uint32_t next = std::max(first_buckets, count + std::max(1U, count / 4));
        return next < 3 * page_buckets ? next : (next + page_buckets - 1) / page_buckets * page_buckets;
    }
    // Empty when there is no memory.
    ARRAY make_array(std::uint32_t count) {
        if (count > most_buckets) return {};
        const ARRAY array{static_cast<BUCKET*>(source.allocate(count * sizeof(BUCKET))), count};
        if (array.buckets == nullptr) return {};
        std::memset(static_cast<void*>(array.buckets), 0, count * sizeof(BUCKET));
        return array;
    }
    __attribute__((noinline, cold)) bool make_room(std::uint32_t part) {
        const ARRAY outgrown = array_of(part);
        const ARRAY larger = make_array(count_after(outgrown.count));
        if (larger.count == 0) return false;
        set_array(part, larger, larger.take_over(outgrown, [](const MEM_BLOCK_MARK&) {}));
        release(outgrown);
        return true;
    }
    // Into one of the last slots of an array that could not grow.
    __attribute__((noinline, cold)) bool put_at_last(const KEY& key, const MEM_BLOCK_MARK& mark) {
        const ARRAY array = array_of(key.part);
        if (array.count == 0) return false;
        const ARRAY::PLACE place = array.find(key.key);
        if (!place.is_free()) {
            place.bucket->set(place.slot, key.key, joined(place.mark(), mark));
            return true;
        }
        if (used(key.part) >= array.last_capacity()) return false;
        --parts->of[key.part].room;
        array.insert(place, key.key, mark);
        return true;
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
    __attribute__((noinline, cold)) MEM_BLOCK_MARK look_up_apart(std::uint64_t address) {
        const std::lock_guard<MEM_SPIN_LOCK> guard(apart_lock);
        const auto found = apart.find(address);
        return found == apart.end() ? MEM_BLOCK_MARK{} : found->second;
    }

    SOURCE source;
    MEM_SPIN_LOCK apart_lock;
    std::unordered_map<std::uint64_t, MEM_BLOCK_MARK> apart;
    // A third of a megabyte that begins as zeros, of which a short program touches little.
    struct PARTS {
        std::atomic<std::uint64_t> heads[part_count];
        PART of[part_count];
    };
    PARTS* const parts = static_cast<PARTS*>(map_memory(sizeof(PARTS)));
};
