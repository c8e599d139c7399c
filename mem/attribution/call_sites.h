// The call-site table: which place in the program an allocation is charged to.
#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "ktl_mem/records.h"
#include "mem/attribution/module_trackers.h"
#include "mem/attribution/pc_index.h"
#include "mem/base/spin_lock.h"
#include "mem/base/steady_array.h"
#include "mem/base/tally.h"
#include "mem/base/tracking_word.h"
#include "platform/stack_step.h"

// One record. What events touch comes first, on two cache lines of its own; the frame's text is written
// before the record is found by anyone and never changes.
struct MEM_CALL_SITE {
    [[no_unique_address]] MEM_TALLY tally;
    bool is_filtered = false;                                // no stack stops here
    std::uint32_t number = 0;                                // in the order of first sight
    STACK_STEP step;                                         // to the caller, for a record that is filtered
    std::atomic<MEM_MODULE_ENTRY*> module_tracker{nullptr};  // null until the first event that needs it
    MEM_PLAIN_WORD<std::int32_t> peak_blocks;                // written with mem_call_site_lock held
    MEM_PLAIN_WORD<std::int64_t> peak_bytes;
    alignas(64) MEM_STACK_FRAME frame;

    // All ten, those that events move at one moment.
    MEMORY_TRACKER_BASE counters();
    // The record as a host sees it.
    MEM_ADDRESS_TRACKER copy();
};

// What a program counter stands for, before it has a record.
struct MEM_CALL_SITE_TEXT {
    MEM_STACK_FRAME frame;
    bool is_filtered = true;
};

// Asks the symbolizer and the filters. It waits for other threads' look-ups and for the loader: outside of
// the gate, and with no lock held that an allocation of another thread can wait for.
MEM_CALL_SITE_TEXT mem_name_call_site(std::uint64_t pc);

// Guards the table: held by whoever inserts a record or walks the records.
extern MEM_SPIN_LOCK mem_call_site_lock;

class MEM_CALL_SITE_TABLE {
  public:
    using MAP = std::unordered_map<std::uint64_t, MEM_CALL_SITE>;

    // The record of a known program counter, or null. Inside the gate; takes no lock.
    MEM_CALL_SITE* find(std::uint64_t pc) const { return index.find(pc); }

    // The record of a program counter: made when there is none. Of two threads that make it at once the first
    // stays. Inside the gate.
    MEM_CALL_SITE& find_or_make(std::uint64_t pc, const MEM_CALL_SITE_TEXT& text);

    // The OTHER record, key 0, which takes what no frame is responsible for.
    MEM_CALL_SITE& other();

    // The record of that number, which must have been given since the last clear. Takes no lock.
    MEM_CALL_SITE& by_number(std::uint32_t number) const { return *numbered[number]; }

    // All records by program counter; with mem_call_site_lock held.
    MAP& records() MEM_CALLED_WITH(mem_call_site_lock) { return map; }

    // As a cat.
    void clear();

  private:
    std::pair<MEM_CALL_SITE&, bool> make(std::uint64_t pc) MEM_CALLED_WITH(mem_call_site_lock);
    MEM_CALL_SITE& number_anew(MEM_CALL_SITE& site) MEM_CALLED_WITH(mem_call_site_lock);

    MAP map MEM_GUARDED_BY(mem_call_site_lock);
    MEM_PC_INDEX index;
    MEM_STEADY_ARRAY<MEM_CALL_SITE*> numbered;
    std::atomic<MEM_CALL_SITE*> other_record{nullptr};
};

extern MEM_CALL_SITE_TABLE* mem_tbb_call_sites;

// The value of the configuration key mem_profile_with_incomplete_fileline_info.
extern MEM_PLAIN_WORD<bool> mem_tbb_incomplete_fileline;
// Some record is filtered, so that there is something to write into the filters file.
extern MEM_PLAIN_WORD<bool> mem_tbb_any_frame_filtered;
