#include <ostream>

#include "ktl_mem/reports.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/paths/call_paths.h"
#include "mem/paths/region_report.h"
#include "mem/report/call_path_names.h"
#include "mem/report/report_gate.h"
#include "mem/report/report_line.h"
#include "mem/report/report_trailer.h"

namespace {

MEM_PATH_SNAPSHOT copy_paths() {
    const MEM_REPORT_GATE alone;
    return mem_copy_call_paths(mem_tbb_call_paths->region());
}

}  // namespace

bool mem_dump_tbb_call_paths_tracking(std::ostream& out) {
    if (!mem_tbb_tracker_is_inited() || mem_tbb_call_paths == nullptr) return true;
    const MEM_LOCKED_CALL_SCOPE not_an_event;
    const MEM_REPORT_CLOCK clock;
    mem_write_call_paths(out, mem_tbb_call_paths->region(), copy_paths(), mem_name_path_frames);
    MEM_REPORT_LINE line;
    line.text(clock.trailer()).end_row(out);
    return true;
}
