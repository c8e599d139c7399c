#include "mem/base/address_map.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <random>
#include <unordered_map>

namespace {

long live_arrays = 0;

struct COUNTING_SOURCE {
    void* allocate(std::size_t bytes) {
        if (bytes > limit) return nullptr;
        ++live_arrays;
        return std::malloc(bytes);
    }
    void release(void* memory, std::size_t) {
        --live_arrays;
        std::free(memory);
    }
    std::size_t limit = SIZE_MAX;
};

// Two parts make long probes and many wrapped ones.
using MAP = MEM_ADDRESS_MAP<COUNTING_SOURCE, 1>;

bool operator==(const MEM_BLOCK_MARK& a, const MEM_BLOCK_MARK& b) {
    return a.halves == b.halves && (!a.has_charge() || a.charge == b.charge);
}

// Addresses of blocks near and far from each other, and some that lie anywhere, 0 among them.
std::uint64_t any_address(std::uint64_t number) {
    switch (number % 16) {
        case 0:
            return number / 16 * 0x123456789abcd1;
        case 1:
            return (number / 16) << 30;
        default:
            return 8 * number;
    }
}

TEST(AddressMap, AgreesWithAModelOverManyChanges) {
    MAP map{COUNTING_SOURCE{}};
    MEM_TURN turn;
    std::unordered_map<std::uint64_t, MEM_BLOCK_MARK> model;
    std::mt19937_64 random(42);
    for (int i = 0; i < 200000; ++i) {
        const std::uint64_t address = any_address(random() % 4000);
        const std::uint32_t all_bins[] = {0, 1, MEM_BLOCK_MARK::bins_half};
        const std::uint32_t bins = all_bins[random() % 3];
        const auto mark =
            random() % 4 != 0 ? MEM_BLOCK_MARK::of_charge(random(), bins) : MEM_BLOCK_MARK::of_bins(bins);
        MEM_BLOCK_MARK there = model.contains(address) ? model[address] : MEM_BLOCK_MARK{};
        if (i % 50000 == 49999) {
            turn.step_out([&] { map.forget_charges(); });
            for (auto& [where, left] : model) left.halves &= MEM_BLOCK_MARK::bins_half;
            std::erase_if(model, [](const auto& entry) { return entry.second.is_empty(); });
        } else if (random() % 2 == 0 && !mark.is_empty()) {
            map.put(turn, address, mark);
            model[address] = {mark.has_charge() ? mark.charge : there.charge,
                              ((mark.halves | there.halves) & MEM_BLOCK_MARK::charge_half) |
                                  (there.bins() != 0 ? there.bins() : mark.bins())};
        } else if (random() % 4 == 0) {
            ASSERT_TRUE(map.look_up(turn, address) == there);
        } else {
            const std::uint32_t halves[] = {MEM_BLOCK_MARK::charge_half, MEM_BLOCK_MARK::bins_half,
                                            MEM_BLOCK_MARK::both_halves};
            const std::uint32_t asked = halves[random() % 3];
            ASSERT_TRUE(map.take(turn, address, asked) ==
                        (MEM_BLOCK_MARK{there.charge, there.halves & asked}));
            there.halves &= ~asked;
            model[address] = there;
            if (there.is_empty()) model.erase(address);
        }
        ASSERT_EQ(map.size(), model.size());
    }
    map.clear();
    EXPECT_EQ(map.size(), 0U);
    EXPECT_EQ(live_arrays, 0);
}

TEST(AddressMap, WithoutMemoryItFillsItsLastSlotsAndThenRefusesEntries) {
    MAP map{COUNTING_SOURCE{.limit = std::size_t{16} * 64}};
    MEM_TURN turn;
    constexpr std::uint64_t stride = 4112, last = stride * 500;  // in as many neighbourhoods
    std::size_t stored = 0;
    for (std::uint64_t address = stride; address <= last; address += stride)
        stored += map.put(turn, address, MEM_BLOCK_MARK::of_charge(address));
    EXPECT_EQ(map.size(), stored);
    EXPECT_LT(stored, 2 * 64);  // two arrays of sixteen buckets at the most
    EXPECT_GT(stored, 2 * 64 * 6 / 8);
    std::size_t found = 0;
    for (std::uint64_t address = stride; address <= last; address += stride) {
        const bool is_known = !map.look_up(turn, address).is_empty();
        EXPECT_EQ(map.put(turn, address, MEM_BLOCK_MARK::of_charge(address)), is_known) << address;
        const MEM_BLOCK_MARK taken = map.take(turn, address, MEM_BLOCK_MARK::both_halves);
        EXPECT_EQ(taken.charge, is_known ? address : 0);
        EXPECT_TRUE(!is_known || map.put(turn, address, taken)) << address;
        found += is_known;
    }
    EXPECT_EQ(found, stored);
}

}  // namespace
