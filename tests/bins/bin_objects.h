// The tables that the bins and their timelines work on, as the tracker builds them, for one test.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <bit>

#include "mem/base/address_table.h"
#include "mem/base/stats.h"
#include "mem/base/tracking_word.h"
#include "mem/bins/bin_attribution.h"
#include "mem/bins/bin_tag_numbers.h"
#include "mem/bins/label_stack.h"
#include "mem/bins/profile_bin_table.h"
#include "mem/bins/profile_bins.h"
#include "mem/bins/timeline_labels.h"
#include "tests/bins/on_threads.h"

class BinObjects : public testing::Test {
  protected:
    BinObjects() {
        mem_tbb_bin_table = new MEM_PROFILE_BIN_TABLE;
        mem_tbb_tag_table = new MEM_PROFILE_BIN_TABLE;
        mem_bin_tag_numbers = new MEM_BIN_TAG_NUMBERS;
        mem_address_table = new MEM_ADDRESS_TABLE(MEM_ARRAY_SOURCE{&pool});
        mem_tbb_timeline_labels = new MEM_TIMELINE_LABELS;
        mem_tbb_memory_tracking_enabled = true;
        mem_tbb_bin_tags_enabled = true;
        mem_tracking_word = MEM_TRACKING_ALL;
        mem_tbb_labels_enabled = true;
        mem_stats.tally.clear();
        mem_enter_local_region();
        mem_stats_forget_peak_bytes();
    }
    ~BinObjects() override {
        mem_tbb_label_stack.clear();
        delete mem_tbb_profile_bins.exchange(nullptr);
        delete mem_tbb_timeline_labels;
        delete mem_address_table;
        delete mem_bin_tag_numbers;
        delete mem_tbb_tag_table;
        delete mem_tbb_bin_table;
    }

    // As the event path does.
    static void charge_bin_and_tag(std::uint64_t address, std::uint64_t bytes) {
        const std::uint32_t bins = mem_current_bin_and_tag();
        MEM_TURN turn;
        mem_address_table->put(turn, address, MEM_BLOCK_MARK::of_bins(bins));
        mem_charge_bin_and_tag(turn, bins, bytes);
    }
    static void discharge_bin_and_tag(std::uint64_t address, std::uint64_t bytes) {
        MEM_TURN turn;
        mem_discharge_bin_and_tag(
            turn, mem_address_table->take(turn, address, MEM_BLOCK_MARK::bins_half).bins(), bytes);
    }
    static void add_bytes(MEM_PROFILE_BIN_TABLE& table, std::uint64_t bytes, std::uint32_t id) {
        MEM_TURN turn;
        table.add_bytes(turn, bytes, id);
    }
    static void remove_bytes(MEM_PROFILE_BIN_TABLE& table, std::uint64_t bytes, std::uint32_t id) {
        MEM_TURN turn;
        table.remove_bytes(turn, bytes, id);
    }
    static void open(const char* name, const char* tag) { mem_open_profile_bin(name, tag); }
    // Start, end and peak.
    static std::array<std::uint64_t, 3> close(const char* tag) {
        std::array<std::uint64_t, 3> bytes{9, 9, 9};
        mem_close_profile_bin(tag, &bytes[0], &bytes[1], &bytes[2]);
        return bytes;
    }
    static std::string bin_and_tag() {
        const MEM_PROFILE_BINS& all = mem_get_profile_bins();
        return all.bins.get_curr_name() + " " + all.tags.get_curr_name();
    }

    MEM_TRACKER_POOL pool;
};

// Current, max, cumulative, peak and flushed peak.
inline std::array<std::int64_t, 5> counters(const MEM_PROFILE_BIN_TABLE& table, std::uint32_t id) {
    MEM_PROFILE_BIN& row = table.row(id);
    const MEMORY_TRACKER_BASE now = row.tally.read();
    return {now.current_bytes, now.max_bytes, now.cumulative_bytes, row.peak, row.flushed_peak};
}

// A table of modules with made-up figures.
struct MODULES {
    struct FIGURES {
        std::string name;
        std::int64_t current_bytes, cumulative_blocks;
    };
    std::vector<FIGURES> all;
    void for_each_at_rest(auto visit) const {
        for (const FIGURES& figures : all) visit(figures);
    }
};

// Lets that many threads go on at the very same time, as often as they come. It spins: a wake-up takes too
// long.
class StartingLine {
  public:
    explicit StartingLine(std::uint64_t number_of_threads) : count(number_of_threads) {}
    void wait() {
        const std::uint64_t mine = arrived++;
        while (arrived < (mine / count + 1) * count) {
        }
    }

  private:
    const std::uint64_t count;
    std::atomic<std::uint64_t> arrived{0};
};
