// The counters of each module, by name. Entries keep their addresses until a reset.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "ktl_mem/records.h"
#include "mem/base/spin_lock.h"
#include "mem/base/tally.h"

struct MEM_MODULE_ENTRY {
    MEM_TALLY tally;
    MEMORY_TRACKER_BASE sampled;  // as the latest sample found it
};

// What a sample of the module timelines takes of an entry.
struct MEM_MODULE_FIGURES {
    std::string_view name;
    std::int64_t current_bytes;
    std::int64_t cumulative_blocks;
};

// Guards the map of names. Taken inside the gate, with no other lock of the tracker held but the mutex of a
// timeline; the locks of tallies come after it.
extern MEM_SPIN_LOCK mem_module_lock;

class MEM_MODULE_TABLE {
  public:
    // The entry of that name, made with zeros when it is missing.
    MEM_MODULE_ENTRY& find_or_create(std::string_view name);

    // Copies the counters as they are at one moment; false when there is no such name, letter case included.
    bool copy(std::string_view name, MEMORY_TRACKER_BASE& out);

    // Nobody may hold an entry.
    void clear();

    // visit(MEM_MODULE_FIGURES) for every entry in the order of names, with all entries at rest: the figures
    // belong to one moment. Events hold one entry at a time, so holding them all cannot deadlock.
    template <class VISIT>
    void for_each_at_rest(VISIT&& visit) {
        const MEM_LOCK_SCOPE guard(mem_module_lock);
        const AT_REST all(entries);
        for (auto& [name, entry] : entries) {
            entry.sampled = entry.tally.held();
            visit(MEM_MODULE_FIGURES{name, entry.sampled.current_bytes, entry.sampled.cumulative_blocks});
        }
    }

  private:
    using MAP = std::map<std::string, MEM_MODULE_ENTRY, std::less<>>;

    class AT_REST {
      public:
        explicit AT_REST(MAP& all) : entries(all) {
            for (auto& [name, entry] : entries) entry.tally.hold();
        }
        ~AT_REST() {
            for (auto& [name, entry] : entries) entry.tally.release();
        }
        AT_REST(const AT_REST&) = delete;
        AT_REST& operator=(const AT_REST&) = delete;

      private:
        MAP& entries;
    };

    MAP entries MEM_GUARDED_BY(mem_module_lock);
};

extern MEM_MODULE_TABLE* mem_tbb_module_trackers;
