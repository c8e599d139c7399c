#include "ktl_mem/queries.h"
#include "mem/attribution/address_table.h"
#include "mem/base/gate.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/tracker/attribution_stage.h"

namespace {

MEM_BLOCK_MARK mark_of(std::uint64_t address) {
    MEM_TURN turn;
    return mem_address_table->look_up(turn, address);
}

}  // namespace

bool mem_get_address_tracker(const void* address, MEM_ADDRESS_TRACKER& out) {
    if (!mem_tbb_tracker_serves(mem_conditions::started_at_block_query)) return false;
    const MEM_GATE_SCOPE inside(*mem_tbb_gate, MEM_MOUSE);
    if (address == nullptr) {
        // Making the record may allocate, inside the gate: that event must not wait at the gate.
        const MEM_BLOCK_TRACKING_SCOPE blocked;
        out = mem_tbb_call_sites->other().copy();
        return true;
    }
    const MEM_BLOCK_MARK mark = mark_of(reinterpret_cast<std::uint64_t>(address));
    if (mark.has_charge()) out = mem_call_site_of(MEM_ADDRESS_ENTRY::of_word(mark.charge)).copy();
    return mark.has_charge();
}
