// MEM_PATH_TRIE: from the path of a caller and a return address to the path of the frame. A path that is
// known is found without a lock; one that is new is entered under one.
//
// A node knows its first child; most have no other, and the paths of a new one's children need no search. The
// further children are chained by their numbers in the buckets of a hash table. When there are more of them
// than buckets, twice as many buckets take over. A search that runs meanwhile may then miss a node, and looks
// again with the lock held; it never finds a wrong one, and it ends, since a chain leads at any moment to
// nodes that were chained before.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "mem/base/spin_lock.h"
#include "mem/paths/loads.h"
#include "mem/paths/region_memory.h"

class MEM_PATH_TRIE {
  public:
    static constexpr std::uint32_t none = mem_path_root;  // no child

    explicit MEM_PATH_TRIE(MEM_PATH_MEMORY& memory_of_region) : memory(memory_of_region), loads(memory) {}
    ~MEM_PATH_TRIE();
    MEM_PATH_TRIE(const MEM_PATH_TRIE&) = delete;
    MEM_PATH_TRIE& operator=(const MEM_PATH_TRIE&) = delete;

    // False when there is no memory.
    bool create();

    // A known child; one that was not seen since the modules may have changed counts as unknown.
    std::uint32_t find(std::uint32_t parent, std::uint64_t pc, std::uint16_t generation) const {
        const auto is_seen = [&](const MEM_PATH_NODE& node) { return node.generation.get() == generation; };
        return find_if(parent, pc, is_seen);
    }

    // The node's account, opened when it has none; none when there is no memory for it.
    std::uint32_t account_of(std::uint32_t node) {
        const std::uint32_t known = memory.region.node(node).account.get_published();
        return known != 0 ? known : open_account(node);
    }

    // The load of the module that holds pc now. With no lock held.
    std::uint16_t load_of(std::uint64_t pc, std::uint16_t generation) { return loads.find(pc, generation); }

    // Whether all program counters are those of nodes; from now on they count as such.
    template <class PC_AT>
    bool note_pcs(std::uint32_t from, std::uint32_t to, PC_AT pc_at) {
        const std::lock_guard<MEM_SPIN_LOCK> guard(lock);
        bool all_known = true;
        for (std::uint32_t at = from; at < to; ++at) all_known &= pcs.insert(pc_at(at));
        return all_known;
    }

    // Makes nodes for a scope, in which nobody else does.
    class INSERTION {
      public:
        INSERTION(MEM_PATH_TRIE& into, std::uint16_t seen_in, std::uint32_t most_nodes)
            : trie(into), guard(into.lock), generation(seen_in), limit(most_nodes) {}

        // The child, made when it is new; none when it can't be made, for lack of memory or because there are
        // as many nodes as there may be.
        std::uint32_t child(std::uint32_t parent, std::uint64_t pc, std::uint16_t load);

      private:
        MEM_PATH_TRIE& trie;
        const std::lock_guard<MEM_SPIN_LOCK> guard;
        const std::uint16_t generation;
        const std::uint32_t limit;
        std::uint32_t latest = none;  // that was made here, and has no child yet
    };

    symbols::LOADED_IMAGE image(std::uint16_t load) { return loads.image(load); }

  private:
    // In memory of its own, the heads behind it.
    struct BUCKETS {
        BUCKETS* outgrown;
        std::uint32_t mask;

        MEM_PATH_WORD<std::uint32_t>& head(std::uint32_t parent, std::uint64_t pc) const {
            const std::uint64_t mixed = (pc ^ std::uint64_t{parent} << 40) * 0x9e3779b97f4a7c15U + parent;
            auto* heads = const_cast<MEM_PATH_WORD<std::uint32_t>*>(
                reinterpret_cast<const MEM_PATH_WORD<std::uint32_t>*>(this + 1));
            return heads[static_cast<std::uint32_t>((mixed * 0x9e3779b97f4a7c15U) >> 32) & mask];
        }
        std::size_t bytes() const { return bytes_for(mask + 1); }
        static std::size_t bytes_for(std::size_t count) {
            return sizeof(BUCKETS) + count * sizeof(MEM_PATH_WORD<std::uint32_t>);
        }
    };
    // A set of program counters; in memory of its own, too.
    struct PC_SET {
        std::uint64_t* slots = nullptr;
        std::size_t mask = 0;
        std::size_t used = 0;

        bool insert(std::uint64_t pc);
        void grow();
    };

    template <class FITS>
    std::uint32_t find_if(std::uint32_t parent, std::uint64_t pc, FITS fits) const {
        std::uint32_t at = memory.region.node(parent).first_child.get_published();
        if (at == none) return none;
        const MEM_PATH_NODE& first = memory.region.node(at);
        if (first.pc == pc && fits(first)) return at;
        at = current.load(std::memory_order_acquire)->head(parent, pc).get_published();
        while (at != none) {
            const MEM_PATH_NODE& node = memory.region.node(at);
            if (node.pc == pc && node.parent == parent && fits(node)) break;
            at = node.next.get_published();
        }
        return at;
    }

    std::uint32_t open_account(std::uint32_t node);
    static BUCKETS* make_buckets(std::uint32_t count, BUCKETS* outgrown);
    std::uint32_t make(std::uint32_t parent, std::uint64_t pc, std::uint16_t load, std::uint16_t generation);
    void add_child(std::uint32_t parent, std::uint32_t number);
    void chain(BUCKETS& buckets, std::uint32_t number);
    void add_buckets();

    MEM_PATH_MEMORY& memory;
    MEM_PATH_LOADS loads;
    MEM_SPIN_LOCK lock;
    std::atomic<BUCKETS*> current{nullptr};
    std::uint32_t chained = 0;  // nodes that are in the buckets
    PC_SET pcs;
};
