#include "mem/bins/bin_attribution.h"

#include "mem/bins/bin_tag_shards.h"
#include "mem/bins/profile_bin_table.h"
#include "mem/bins/profile_bins.h"

void mem_charge_bin_and_tag(std::uint64_t address, std::uint64_t bytes) {
    const MEM_PROFILE_BINS& all = mem_get_profile_bins();
    const std::uint32_t bin_id = all.bins.get_curr_id();
    const std::uint32_t tag_id = all.tags.get_curr_id();
    // An entry that is there already wins.
    mem_bin_tag_shards->insert(address, {bin_id, tag_id});
    mem_tbb_bin_table->add_bytes(bytes, bin_id);
    mem_tbb_tag_table->add_bytes(bytes, tag_id);
}

void mem_discharge_bin_and_tag(std::uint64_t address, std::uint64_t bytes) {
    MEM_BIN_TAG_ENTRY charged;
    mem_bin_tag_shards->retire(address, charged);
    mem_tbb_bin_table->remove_bytes(bytes, charged.bin_id);
    mem_tbb_tag_table->remove_bytes(bytes, charged.tag_id);
}
