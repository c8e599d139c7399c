#include "mem/base/scarcity.h"

#include <atomic>

#include "platform/mapped_memory.h"

constinit MEM_PLAIN_WORD<bool> mem_memory_is_scarce{false};

namespace {

// An allocator takes memory from the system in pieces of a mebibyte, so each part is larger than that.
constexpr std::size_t part_bytes = std::size_t{2} << 20;
constexpr int part_count = 8;

// Parts go from the upper end down, so that those that are gone make one room.
constinit std::atomic<char*> reserve{nullptr};
constinit std::atomic<int> parts_left{0};

// What an allocator may ask of the system at once for a small block.
constexpr std::size_t room_to_go_on = std::size_t{4} << 20;
constexpr std::size_t largest_sample = std::size_t{1} << 20;

// Tables in many parts grow by little and often: one question covers several small pieces.
constexpr std::size_t largest_small_piece = std::size_t{64} << 10;
constexpr std::size_t room_for_small_pieces = std::size_t{1} << 20;
constinit std::atomic<std::size_t> small_room_left{0};

bool take_small_room(std::size_t bytes) {
    std::size_t left = small_room_left.load(std::memory_order_relaxed);
    do {
        if (bytes > largest_small_piece || bytes > left) return false;
    } while (!small_room_left.compare_exchange_weak(left, left - bytes, std::memory_order_relaxed));
    return true;
}

}  // namespace

void mem_hold_reserve() {
    if (reserve.load() != nullptr || mem_memory_is_scarce) return;
    auto* const mapped = static_cast<char*>(map_memory(part_count * part_bytes));
    if (mapped == nullptr) return;
    char* none = nullptr;
    if (reserve.compare_exchange_strong(none, mapped)) {
        parts_left.store(part_count);
    } else {
        unmap_memory(mapped, part_count * part_bytes);
    }
}

bool mem_spend_reserve() {
    mem_memory_is_scarce = true;
    int left = parts_left.load();
    do {
        if (left == 0) return false;
    } while (!parts_left.compare_exchange_weak(left, left - 1));
    unmap_memory(reserve.load() + static_cast<std::size_t>(left - 1) * part_bytes, part_bytes);
    return true;
}

void mem_release_reserve() {
    const int left = parts_left.exchange(0);
    if (left != 0) unmap_memory(reserve.load(), static_cast<std::size_t>(left) * part_bytes);
    reserve.store(nullptr);
}

bool mem_has_room_for(std::size_t bytes) {
    if (take_small_room(bytes)) return true;
    const std::size_t asked = bytes + room_for_small_pieces + room_to_go_on;
    void* const room = map_memory(asked);
    if (room == nullptr) {
        mem_memory_is_scarce = true;
        return false;
    }
    unmap_memory(room, asked);
    small_room_left.store(room_for_small_pieces, std::memory_order_relaxed);
    return true;
}

bool mem_has_room_for_a_sample() {
    return mem_has_room_for(largest_sample);
}
