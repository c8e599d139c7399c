// MEM_CALL_PATHS: who called it. Every tracked block is charged to the path of calls that allocated it.
//
//   find        the account of the calling thread's stack: what changed since the last one is stepped over,
//               the rest is compared, and the trie is asked for the changed frames alone
//   charge      the account, then the total; a total above all before is the exact peak
//   discharge   likewise
//
// Nothing here allocates on the general heap but what is kept once for each module, takes a lock for longer
// than it moves an account's figures or enters a new node, or waits for the loader.
#pragma once

#include <cstdint>

#include "mem/base/tally.h"
#include "mem/paths/account_figures.h"
#include "mem/paths/region_memory.h"
#include "mem/paths/thread_stack.h"
#include "mem/paths/trie.h"
#include "platform/stack_walk.h"

class MEM_CALL_PATHS {
  public:
    static constexpr std::uint32_t none = MEM_PATH_TRIE::none;

    // Which module is the allocator's is known by the address of one of its functions. Calls the loader.
    explicit MEM_CALL_PATHS(const void* allocator_function, std::uint32_t most_nodes,
                            MEM_PATH_PLACE place = MEM_PATH_PLACE::private_memory);
    MEM_CALL_PATHS(const MEM_CALL_PATHS&) = delete;
    MEM_CALL_PATHS& operator=(const MEM_CALL_PATHS&) = delete;

    // False when there was no memory: then nothing else may be called.
    bool is_made() const { return made; }
    const MEM_PATH_REGION& region() const { return memory.region; }
    // What the load with that number above 0 had in memory.
    symbols::LOADED_IMAGE image(std::uint16_t load) { return trie.image(load); }
    int take_descriptor() { return memory.take_descriptor(); }
    // Where they lie, and where those of a forked child are to lie (mem/paths/region_memory.h).
    MEM_PATH_MEMORY& place() { return memory; }

    // The account of the stack's path without its skip innermost frames, and without those of the allocator
    // and of this library that follow; none when it can't be made. Outside of the gate.
    std::uint32_t find(const STACK_WALK_START& start, std::uint32_t skip);
    // An account for all paths that were cut and that are charged to the call site with that program counter;
    // none when even that can't be made. Counts a cut path.
    std::uint32_t find_for_cut_path(std::uint64_t site_pc);

    // The number of the call site that an account belongs to, plus 1, or 0 when nobody has noted it yet.
    // Inside the gate.
    std::uint32_t site_of(std::uint32_t account) const {
        return memory.region.counts(account).site.get_published();
    }
    void note_site(std::uint32_t account, std::uint32_t site, std::uint64_t site_pc);

    // These inside the gate. True when the total is the highest ever: who charges then says in which event.
    bool charge(MEM_TURN& turn, std::uint32_t account, const MEM_PATH_BLOCK& block);
    // A block without an entry, whose free will come off the same account.
    bool charge_unseen(MEM_TURN& turn, const MEM_PATH_BLOCK& block);
    void note_peak(std::uint64_t event);
    void discharge(MEM_TURN& turn, std::uint32_t account, const MEM_PATH_BLOCK& block);

    // All figures and noted call sites are gone; nodes and accounts keep their numbers. As a cat.
    void clear();

  private:
    // Addresses of a module; empty when it is none of its own.
    struct RANGE {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;

        bool holds(std::uint64_t pc) const { return pc - begin < end - begin; }
    };
    // A path on its way along a stack, outermost frame first.
    struct WAY {
        std::uint32_t at;    // frames that it has gone along
        std::uint32_t node;  // of the path so far
    };
    static RANGE module_around(const void* address);
    std::uint32_t path_length(KEPT_STACK& frames, std::uint32_t skip) const;
    bool go_on(KEPT_STACK& frames, std::uint32_t length, std::uint16_t generation, WAY& way);
    std::uint32_t account_of(std::uint32_t node);
    std::uint32_t share_of(std::uint32_t node);

    MEM_PATH_MEMORY memory;
    MEM_PATH_TRIE trie;
    MEM_TALLY total;
    MEM_SPIN_LOCK site_lock;
    const std::uint64_t identity;
    const RANGE allocator;
    const RANGE own_module;
    bool made;
};

// Null until call paths were asked for the first time, or when there was no memory for them.
extern MEM_CALL_PATHS* mem_tbb_call_paths;
