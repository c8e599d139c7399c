// The reset of the attribution tables, and the sample that a host asks for.
#include "ktl_mem/queries.h"
#include "ktl_mem/timelines.h"
#include "mem/attribution/address_table.h"
#include "mem/base/gate.h"
#include "mem/base/tracker_phase.h"
#include "mem/bins/timeline_labels.h"
#include "mem/paths/call_paths.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timelines.h"
#include "mem/timeline/sample_clock.h"
#include "mem/timeline/tag_timeline.h"
#include "mem/tracker/event_numbers.h"
#include "mem/tracker/events.h"
#include "mem/tracker/peak_search.h"
#include "mem/tracker/resident_sampling.h"
#include "mem/tracker/tracker_state.h"
#include "mem/tracker/whole_change.h"

void mem_reset_tracking_entries() {
    if (!mem_tbb_tracker_serves(mem_conditions::started_at_reset)) return;
    mem_change_wholly([] {
        const MEM_GATE_SCOPE alone(*mem_tbb_gate, MEM_CAT);
        mem_address_table->forget_charges();
        if (mem_tbb_call_paths != nullptr) mem_tbb_call_paths->clear();
        mem_tbb_module_trackers->clear();
        mem_tbb_call_sites->clear();
        mem_tbb_tag_timeline->reset();  // with the rows of the tag table
        mem_tbb_total_bytes.clear();
        mem_tbb_announced_bytes = 0;
        mem_tbb_peak_search.restart();
    });
}

void mem_user_snapshot_tracking_data() {
    if (!mem_tbb_tracker_serves(mem_conditions::started_at_snapshot)) return;
    mem_change_wholly([] {
        mem_tbb_module_timelines->sample(*mem_tbb_module_trackers);
        mem_sample_tags();
        mem_tbb_timeline_labels->sample();
        mem_tbb_auxiliary_timeline->capture();
        mem_tbb_sample_clock->note(mem_events_numbered());
        mem_take_event_number();  // a step of its own, at which nothing is sampled again
    });
}
