// MEM_STEADY_ARRAY: a sequence whose elements never move and whose readers never wait. Elements lie in
// segments of doubling size, the first of them inside the object; growing adds a segment and touches none
// that is there. A plain vector would move its elements under the event path's feet, and a lock around it
// could deadlock: the thread that grows allocates, and that allocation is an event like any other.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>

template <class T>
class MEM_STEADY_ARRAY {
  public:
    MEM_STEADY_ARRAY() { segments[0].store(first_segment.data(), std::memory_order_relaxed); }
    ~MEM_STEADY_ARRAY() {
        for (std::size_t i = 1; i < segments.size(); ++i)
            delete[] segments[i].load(std::memory_order_relaxed);
    }
    MEM_STEADY_ARRAY(const MEM_STEADY_ARRAY&) = delete;
    MEM_STEADY_ARRAY& operator=(const MEM_STEADY_ARRAY&) = delete;

    // Any thread. Acquire: whoever sees the size sees the elements below it as they were published.
    std::uint32_t size() const { return count.load(std::memory_order_acquire); }

    // Any thread, for an index that has storage. Relaxed: the size that the caller has read orders it.
    T& operator[](std::uint32_t index) const {
        const std::size_t segment = segment_of(index);
        return segments[segment].load(std::memory_order_relaxed)[index - start_of(segment)];
    }

    // One thread at a time: storage for the first new_size elements, value-initialised; then their
    // publication.
    void reserve(std::uint32_t new_size) {
        if (new_size == 0) return;
        for (std::size_t segment = segment_of(new_size - 1); segment != 0 && !has(segment); --segment)
            segments[segment].store(new T[start_of(segment)]{}, std::memory_order_relaxed);
    }
    void set_size(std::uint32_t new_size) { count.store(new_size, std::memory_order_release); }

  private:
    static constexpr std::uint32_t first_size = 64;
    // Segment 0 holds the first 64 elements, segment k as many as all the segments before it.
    static std::size_t segment_of(std::uint32_t index) { return std::bit_width(index / first_size); }
    static std::uint32_t start_of(std::size_t segment) {
        return segment == 0 ? 0 : first_size << (segment - 1);
    }
    bool has(std::size_t segment) const {
        return segments[segment].load(std::memory_order_relaxed) != nullptr;
    }

    std::atomic<std::uint32_t> count{0};
    std::array<std::atomic<T*>, 27> segments{};
    std::array<T, first_size> first_segment{};
};
