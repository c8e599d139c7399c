// The arena, seen through the addresses it hands out.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "ktl_mem/chunk_alloc.h"
#include "ktl_mem/services.h"
#include "tests/attribution/told_messages.h"

namespace {

class ChunkAlloc : public testing::Test {
  protected:
    ~ChunkAlloc() override { arena.chunk_free_memory(); }

    char* take(std::uint64_t size, std::uint64_t alignment = 1) {
        return static_cast<char*>(arena.chunk_malloc(size, alignment));
    }
    // A new chunk with that many bytes left; the result is its first free byte.
    char* begin_chunk(std::uint64_t left) {
        arena.chunk_free_memory();
        return take(mem_utils_chunk_size - left) + mem_utils_chunk_size - left;
    }

    MEM_UTILS_CHUNK_ALLOC arena;
};

TEST_F(ChunkAlloc, RequestsFollowEachOtherWithTheirPads) {
    EXPECT_EQ(take(0), nullptr);
    char* first = take(16, 64);  // malloc's alignment, whatever was asked
    EXPECT_EQ(take(1), first + 16);
    EXPECT_EQ(take(8, 8), first + 24);
    EXPECT_EQ(take(0), first + 32);
    char* odd = take(5, 24);  // no power of two
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(odd) % 24, 0u);
    EXPECT_LT(odd - (first + 32), 24);
}

TEST_F(ChunkAlloc, EveryByteIsZeroAndNoneIsHandedOutTwice) {
    std::vector<std::pair<char*, std::uint64_t>> blocks;
    for (std::uint64_t i = 0; i < 3000; ++i) {
        std::uint64_t size = i % 97 == 0 ? 30000 + i * 2 : 1 + i % 300;
        char* block = take(size, 1 + i % 40);
        ASSERT_TRUE(std::all_of(block, block + size, [](char byte) { return byte == 0; })) << i;
        std::memset(block, 0xee, size);
        blocks.emplace_back(block, size);
    }
    std::sort(blocks.begin(), blocks.end());
    for (std::size_t i = 1; i < blocks.size(); ++i)
        ASSERT_LE(blocks[i - 1].first + blocks[i - 1].second, blocks[i].first);
}

TEST_F(ChunkAlloc, TheThresholdDecidesOverTheRestOfAChunk) {
    char* place = begin_chunk(150);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(take(mem_utils_chunk_size + 1, 4096)) % 4096, 0u);
    take(200);
    EXPECT_EQ(take(50), place);
    take(101);
    EXPECT_EQ(take(1), place + 50);  // still kept at exactly 100
    char* next_chunk = take(100);    // given up at 99
    EXPECT_EQ(take(8), next_chunk + 100);
    place = begin_chunk(50);
    EXPECT_EQ(take(40), place);  // what fits is served whatever the threshold
    arena.set_fragment_threshold(10);
    take(11);
    EXPECT_EQ(take(10), place + 40);
}

TEST_F(ChunkAlloc, WarnsFromThe501stOversizeRequestOn) {
    mem_set_msg_local_vdebug_callback(keep_message);
    for (std::size_t expected : {2, 4}) {
        for (int i = 0; i < 502; ++i) take(mem_utils_chunk_size + 1);
        take(mem_utils_chunk_size);  // not oversize
        EXPECT_EQ(messages.size(), expected);
        arena.chunk_free_memory();
        arena.chunk_free_memory();
    }
    mem_set_msg_local_vdebug_callback(nullptr);
}

TEST_F(ChunkAlloc, ASizeThatNoAddressSpaceHasEndsTheProcess) {
    take(16);
    EXPECT_EXIT(take(UINT64_MAX - 8, 16), testing::ExitedWithCode(1), "");
}

}  // namespace
