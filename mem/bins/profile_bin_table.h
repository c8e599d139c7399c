// The counters of bins and of tags. Bytes are allocated sizes.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/base/spin_lock.h"
#include "mem/base/steady_array.h"
#include "mem/base/tally.h"
#include "mem/base/tracking_word.h"

// The counters of one bin or one tag. Whoever needs those of all rows at rest is alone in the tracker's gate.
struct MEM_PROFILE_BIN {
    MEM_TALLY tally;                            // of bytes; blocks are ignored
    MEM_PLAIN_WORD<std::int64_t> peak;          // current bytes at the latest recorded peak of the process
    MEM_PLAIN_WORD<std::int64_t> flushed_peak;  // peak at the latest flush

    MEM_PROFILE_BIN() { clear(); }
    void clear();
};

// One row for each id from 0 to the highest that has moved bytes. Adding and removing run on the event path
// of any thread as mice of the tracker's gate, and don't exclude each other; the others, and the sampler of
// the tag timeline, run as its cat. Rows never move, so that reports read them without entering the gate.
class MEM_PROFILE_BIN_TABLE {
  public:
    void add_bytes(MEM_TURN& turn, std::uint64_t bytes, std::uint32_t id);

    // The bytes of an id that has no row come off a new row of zeros, whose current thus falls below zero.
    // That comes after clear(), with blocks that are older than it, and with blocks that nobody saw being
    // allocated. An id that has had a row before needs no memory here, clear() or not: storage is kept.
    void remove_bytes(MEM_TURN& turn, std::uint64_t bytes, std::uint32_t id);

    // Of every row, at one moment for all of them.
    void take_peak();     // peak = current
    void flush_peak();    // flushed_peak = peak
    void restore_peak();  // peak = flushed_peak

    // Forgets all rows. A timeline over this table must be reset in the same breath: MEM_TAG_TIMELINE::reset.
    void clear();

    // Safe at any time. The values of two rows, or of two counters, can come from two moments.
    std::uint32_t size() const { return rows.size(); }
    MEM_PROFILE_BIN& row(std::uint32_t id) const { return rows[id]; }

  private:
    MEM_PROFILE_BIN& row_of(MEM_TURN& turn, std::uint32_t id) {
        if (id >= rows.size()) [[unlikely]]
            turn.step_out([&] { grow(id); });  // a row that is made holds all turns
        return rows[id];
    }
    void grow(std::uint32_t id);
    template <class CHANGE>
    void change_all(CHANGE change);

    MEM_STEADY_ARRAY<MEM_PROFILE_BIN> rows;
    MEM_SPIN_LOCK grow_lock;  // taken inside the gate only, by a mouse
};

// Indexed by bin id and by tag id.
extern MEM_PROFILE_BIN_TABLE* mem_tbb_bin_table;
extern MEM_PROFILE_BIN_TABLE* mem_tbb_tag_table;
