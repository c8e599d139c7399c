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
        if (bytes > limit) throw std::bad_alloc();
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
using MAP = MEM_ADDRESS_MAP<std::uint64_t, COUNTING_SOURCE, 2>;

TEST(AddressMap, AgreesWithAModelOverManyChanges) {
    MAP map{COUNTING_SOURCE{}};
    std::unordered_map<std::uint64_t, std::uint64_t> model;
    std::mt19937_64 random(42);
    for (int i = 0; i < 200000; ++i) {
        const std::uint64_t address = 16 * (1 + random() % 3000);
        const std::uint64_t value = random();
        switch (random() % 4) {
            case 0:
                map.insert_or_assign(address, value);
                model[address] = value;
                break;
            case 1:
                map.insert(address, value);
                model.emplace(address, value);
                break;
            default: {
                std::uint64_t seen = 7;
                const bool known = model.contains(address), retires = random() % 2 == 0;
                const bool found = retires ? map.retire(address, seen)
                                           : map.inspect(address, [&](std::uint64_t v) { seen = v; });
                ASSERT_EQ(found, known);
                ASSERT_EQ(seen, known ? model[address] : 7);
                if (retires) model.erase(address);
            }
        }
        ASSERT_EQ(map.size(), model.size());
    }
    map.clear();
    EXPECT_EQ(map.size(), 0U);
    EXPECT_EQ(live_arrays, 0);
}

TEST(AddressMap, AFailedGrowthLeavesTheMapAsItWas) {
    MAP map{COUNTING_SOURCE{.limit = 16 * 16}};
    std::size_t stored = 0;
    try {
        for (std::uint64_t address = 16;; address += 16, ++stored) map.insert_or_assign(address, address);
    } catch (const std::bad_alloc&) {
    }
    EXPECT_EQ(map.size(), stored);
    std::uint64_t value = 0;
    for (std::uint64_t address = 16; address <= 16 * stored; address += 16)
        EXPECT_TRUE(map.retire(address, value) && value == address) << address;
}

}  // namespace
