// MEM_PATH_TRIE: from the path of a caller and a return address to the path of the frame. A path that is
// known is found without a lock; one that is new is entered under one.
//
// A node knows its first child; most have no other, and what lies behind a new node needs no search. The
// further children lie in a table of slots, which hold their numbers beside their hash, so that a search
// hardly ever touches the wrong node, and the table grows without looking at nodes. When half of the slots
// are taken, twice as many take over. A search that runs meanwhile may then miss a node, and looks again with
// the lock held; it never finds a wrong one.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "mem/base/spin_lock.h"
#include "mem/paths/loads.h"
#include "mem/paths/region_memory.h"
#include "platform/startup_modules.h"

class MEM_PATH_TRIE {
  public:
    static constexpr std::uint32_t none = mem_path_root;  // no child

    // A path that was cut stands for all those of a call site for which no node could be made. Nodes and
    // accounts are kept ready for such, where there is no memory for others, and their number has a limit of
    // its own.
    enum class PATH { whole, cut };

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
    std::uint32_t account_of(std::uint32_t node, PATH path) {
        const std::uint32_t known = memory.region.node(node).account.get_published();
        return known != 0 ? known : open_account(node, path);
    }

    // The load of the module that holds pc now. With no lock held.
    std::uint16_t load_of(std::uint64_t pc, std::uint16_t generation) { return loads.find(pc, generation); }

    // Whether all program counters are those of nodes, or of modules that are never unloaded; from now on
    // they count as such.
    template <class PC_AT>
    bool note_pcs(std::uint32_t from, std::uint32_t to, PC_AT pc_at) {
        const std::lock_guard<MEM_SPIN_LOCK> guard(lock);
        bool all_known = true;
        for (std::uint32_t at = from; at < to; ++at)
            all_known &= startup_module_at(pc_at(at)) != nullptr || pcs.insert(pc_at(at));
        return all_known;
    }

    // Makes nodes for a scope, in which nobody else does.
    class INSERTION {
      public:
        INSERTION(MEM_PATH_TRIE& into, std::uint16_t seen_in, PATH of_path)
            : trie(into), guard(into.lock), generation(seen_in), path(of_path) {}

        // The child, made when it is new; none when it can't be made, for lack of memory or because there are
        // as many nodes as there may be.
        std::uint32_t child(std::uint32_t parent, std::uint64_t pc, std::uint16_t load);

      private:
        MEM_PATH_TRIE& trie;
        const std::lock_guard<MEM_SPIN_LOCK> guard;
        const std::uint16_t generation;
        const PATH path;
        std::uint32_t latest = none;  // that was made here, and has no child yet
    };

    symbols::LOADED_IMAGE image(std::uint16_t load) { return loads.image(load); }

  private:
    // In memory of its own, the slots behind it. A slot is 0, or a number below the hash.
    struct TABLE {
        using SLOT = MEM_PATH_WORD<std::uint64_t>;
        TABLE* outgrown;
        std::uint32_t mask;

        SLOT& slot(std::uint32_t place) const {
            auto* slots = const_cast<SLOT*>(reinterpret_cast<const SLOT*>(this + 1));
            return slots[place & mask];
        }
        void enter(std::uint32_t hash, std::uint32_t number);
        std::size_t bytes() const { return bytes_for(std::size_t{mask} + 1); }
        static std::size_t bytes_for(std::size_t count) { return sizeof(TABLE) + count * sizeof(SLOT); }
    };
    static std::uint32_t hash_of(std::uint32_t parent, std::uint64_t pc) {
        const std::uint64_t mixed = (pc ^ std::uint64_t{parent} << 40) * 0x9e3779b97f4a7c15U + parent;
        return static_cast<std::uint32_t>((mixed ^ mixed >> 32) * 0x9e3779b97f4a7c15U >> 32);
    }
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
        const MEM_PATH_NODE& from = memory.region.node(parent);
        const std::uint32_t first = from.first_child.get_published();
        if (first == none) return none;
        const auto is_it = [&](std::uint32_t number) {
            const MEM_PATH_NODE& node = memory.region.node(number);
            return node.pc == pc && node.parent == parent && fits(node);
        };
        if (from.first_child_pc == static_cast<std::uint32_t>(pc) && is_it(first)) return first;
        const std::uint32_t hash = hash_of(parent, pc);
        const TABLE* table = current.load(std::memory_order_acquire);
        for (std::uint32_t place = hash;; ++place) {
            const std::uint64_t slot = table->slot(place).get_published();
            const auto number = static_cast<std::uint32_t>(slot);
            if (slot == 0 || (slot >> 32 == hash && is_it(number))) return number;
        }
    }

    static std::uint32_t kept_ready_beside(PATH path);
    std::uint32_t open_account(std::uint32_t node, PATH path);
    static TABLE* make_table(std::uint32_t slots, TABLE* outgrown);
    bool has_room(std::uint32_t number, std::uint32_t parent, PATH path);
    std::uint32_t make(std::uint32_t parent, std::uint64_t pc, std::uint16_t load, std::uint16_t generation);
    bool has_slot_for_child(std::uint32_t parent, PATH path);
    void add_child(std::uint32_t parent, std::uint32_t number);

    MEM_PATH_MEMORY& memory;
    MEM_PATH_LOADS loads;
    MEM_SPIN_LOCK lock;
    std::atomic<TABLE*> current{nullptr};
    std::uint32_t slots_taken = 0;
    PC_SET pcs;
};
