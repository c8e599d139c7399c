// MEM_PATH_MEMORY: the region of the call paths as the tracked process writes it. It is made of pieces, and
// takes the next one when the last is full, so that its address space grows with its use.
#pragma once

#include <cstdint>

#include "mem/base/spin_lock.h"
#include "mem/paths/region.h"

// Where the region lives: in memory of the process's own, or in shared memory that another process may map.
enum class MEM_PATH_PLACE { private_memory, shared_memory };

class MEM_PATH_MEMORY {
  public:
    explicit MEM_PATH_MEMORY(MEM_PATH_PLACE where) : place(where) {}
    ~MEM_PATH_MEMORY();
    MEM_PATH_MEMORY(const MEM_PATH_MEMORY&) = delete;
    MEM_PATH_MEMORY& operator=(const MEM_PATH_MEMORY&) = delete;

    // The head and the nodes that are always there. False when there is no memory. Where there is no shared
    // memory the region is private.
    bool create(std::uint32_t most_nodes);

    // The descriptor of shared memory, once; it is the caller's from then on. -1 when there is none, or no
    // more.
    int take_descriptor();

    // For a forked child, which must not write to what its parent goes on writing to. copy_shared is called
    // before the fork, while nobody writes: a descriptor of a copy of shared memory, or -1. move_to has a
    // child work on the copy; false when it can't. Private memory needs neither.
    bool is_shared() const { return place == MEM_PATH_PLACE::shared_memory; }
    int copy_shared() const;
    bool move_to(int copy);

    // Room for the element of that number; one thread at a time for each sequence. False when there is no
    // memory, or no such number.
    bool reserve_node(std::uint32_t number);
    bool reserve_account(std::uint32_t number);
    bool reserve_load(std::uint32_t number);
    bool reserve_site(std::uint32_t number);

    MEM_PATH_REGION region;

  private:
    struct PIECE {
        std::byte* memory = nullptr;
        std::size_t bytes = 0;
    };
    // Calls act(piece, offset in the shared memory) until it gives false.
    template <class ACT>
    bool for_each_piece(ACT act) const;
    template <class LAYOUT, class PUBLISH>
    bool reserve(PIECE (&pieces)[LAYOUT::most_pieces], MEM_PATH_WORD<std::uint64_t>* places,
                 std::uint32_t number, PUBLISH publish);
    bool take_head();
    PIECE take(std::size_t bytes);
    void seed();

    MEM_PATH_PLACE place;
    int descriptor = -1;
    MEM_SPIN_LOCK lock;  // of what follows: the sequences grow apart
    PIECE head;
    PIECE latest;  // in shared memory the next piece lies behind it
    PIECE nodes[MEM_PATH_NODE_LAYOUT::most_pieces];
    PIECE accounts[MEM_PATH_ACCOUNT_LAYOUT::most_pieces];
    PIECE loads[MEM_PATH_LOAD_LAYOUT::most_pieces];
    PIECE sites[MEM_PATH_SITE_LAYOUT::most_pieces];
};
