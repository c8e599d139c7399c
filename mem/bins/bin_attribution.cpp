#include "mem/bins/bin_attribution.h"

#include "mem/bins/bin_tag_numbers.h"
#include "mem/bins/profile_bin_table.h"
#include "mem/bins/profile_bins.h"

std::uint32_t mem_current_bin_and_tag() {
    const MEM_PROFILE_BINS& all = mem_get_profile_bins();
    return mem_bin_tag_numbers->number_of({all.bins.get_curr_id(), all.tags.get_curr_id()});
}

void mem_charge_bin_and_tag(MEM_TURN& turn, std::uint32_t number, std::uint64_t bytes) {
    const MEM_BIN_TAG_ENTRY& charged = mem_bin_tag_numbers->of(number);
    mem_tbb_bin_table->add_bytes(turn, bytes, charged.bin_id);
    mem_tbb_tag_table->add_bytes(turn, bytes, charged.tag_id);
}

void mem_discharge_bin_and_tag(MEM_TURN& turn, std::uint32_t number, std::uint64_t bytes) {
    const MEM_BIN_TAG_ENTRY& charged = mem_bin_tag_numbers->of(number);
    mem_tbb_bin_table->remove_bytes(turn, bytes, charged.bin_id);
    mem_tbb_tag_table->remove_bytes(turn, bytes, charged.tag_id);
}
