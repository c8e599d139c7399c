// What the table by address keeps of a block's charge.
#pragma once

#include <bit>
#include <cstdint>

#include "mem/attribution/call_sites.h"
#include "mem/base/address_table.h"

// What a block is charged to: the account of its path (mem/paths), which knows its call site, or a call site.
// It has 8 bytes. So the bytes that the allocator gave beyond those that were asked
// for, which belong to the figures of a path, share the words with the numbers, and are cut where there are
// more.
class MEM_ADDRESS_ENTRY {
  public:
    // thread_id: of the allocating thread while call sites were tracked, else 0.
    static MEM_ADDRESS_ENTRY of_call_site(std::uint32_t number, std::uint32_t thread_id) {
        return {number, thread_id};
    }
    static MEM_ADDRESS_ENTRY of_path(std::uint32_t account, std::uint32_t thread_id,
                                     std::uint64_t spare_bytes) {
        const auto spare = static_cast<std::uint32_t>(spare_bytes < most_spare ? spare_bytes : most_spare);
        return {path_bit | (spare >> spare_bits_beside_thread) << account_bits | account,
                thread_id | spare << thread_bits};
    }

    bool is_path() const { return (place & path_bit) != 0; }
    std::uint32_t call_site() const { return place; }
    std::uint32_t account() const { return place & ((1U << account_bits) - 1); }
    std::uint32_t thread_id() const { return thread & ((1U << thread_bits) - 1); }
    std::uint64_t spare_bytes() const {
        return (place & ~path_bit) >> account_bits << spare_bits_beside_thread | thread >> thread_bits;
    }

    std::uint64_t as_word() const { return std::bit_cast<std::uint64_t>(*this); }
    static MEM_ADDRESS_ENTRY of_word(std::uint64_t word) { return std::bit_cast<MEM_ADDRESS_ENTRY>(word); }

    MEM_ADDRESS_ENTRY() = default;

  private:
    static constexpr std::uint32_t path_bit = 1U << 31;
    static constexpr unsigned account_bits = 24;
    static constexpr unsigned thread_bits = 22;  // the system gives no higher ids
    static constexpr unsigned spare_bits_beside_thread = 32 - thread_bits;
    static constexpr std::uint64_t most_spare = (1U << (31 - account_bits + spare_bits_beside_thread)) - 1;

    MEM_ADDRESS_ENTRY(std::uint32_t where, std::uint32_t who) : place(where), thread(who) {}

    std::uint32_t place = 0;
    std::uint32_t thread = 0;
};
