// The call-path report: the names of the frames that mem/paths knows by number.
#include <ostream>
#include <utility>
#include <vector>

#include "ktl_mem/reports.h"
#include "mem/attribution/call_sites.h"
#include "mem/attribution/code_names.h"
#include "mem/attribution/frame_filters.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/paths/call_paths.h"
#include "mem/paths/region_report.h"
#include "mem/report/report_gate.h"
#include "mem/report/report_line.h"
#include "mem/report/report_trailer.h"

namespace {

// The whole names, where a call site's are cut to their fields; the same verdicts.
std::vector<MEM_PATH_LEVEL> levels_of(MEM_NAMED_CODE code) {
    if (code.levels.empty()) code.levels.emplace_back();
    if (mem_tbb_incomplete_fileline && code.levels[0].file.empty()) code.levels[0].file = "Unknown";
    std::vector<MEM_PATH_LEVEL> levels;
    for (const symbols::FRAME& frame : code.levels) {
        MEM_PATH_LEVEL& level = levels.emplace_back();
        level = {code.module, frame.file, frame.function, frame.line, false};
        level.is_filtered = mem_module_is_filtered(code.module.c_str()) ||
                            mem_frame_is_filtered(frame.file.c_str(), frame.function.c_str());
    }
    return levels;
}

std::vector<std::vector<MEM_PATH_LEVEL>> name_frames(const std::vector<MEM_PATH_FRAME>& frames) {
    std::vector<std::uint64_t> pcs;
    for (const MEM_PATH_FRAME& frame : frames) pcs.push_back(frame.pc);
    std::vector<std::vector<MEM_PATH_LEVEL>> named;
    for (MEM_NAMED_CODE& code : mem_name_code(pcs)) named.push_back(levels_of(std::move(code)));
    return named;
}

MEM_PATH_SNAPSHOT copy_paths() {
    const MEM_REPORT_GATE alone;
    return mem_copy_call_paths(mem_tbb_call_paths->region());
}

}  // namespace

bool mem_dump_tbb_call_paths_tracking(std::ostream& out) {
    if (!mem_tbb_tracker_is_inited() || mem_tbb_call_paths == nullptr) return true;
    const MEM_LOCKED_CALL_SCOPE not_an_event;
    const MEM_REPORT_CLOCK clock;
    mem_write_call_paths(out, mem_tbb_call_paths->region(), copy_paths(), name_frames);
    MEM_REPORT_LINE line;
    line.text(clock.trailer()).end_row(out);
    return true;
}
