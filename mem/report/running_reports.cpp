// The reports of a process that goes on.
#include "ktl_mem/running_reports.h"

#include <new>

#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/report/report_files.h"
#include "mem/report/report_gate.h"
#include "platform/own_stack.h"
#include "platform/thread.h"

namespace {

constinit OWN_STACK stack;

void write_into(const std::string& folder) {
    stack.run([&folder] {
        const MEM_LOCKED_CALL_SCOPE not_an_event;
        const MEM_REPORT_GATE alone;
        mem_set_report_folder(folder);
        mem_write_report_files();
    });
}

}  // namespace

bool mem_write_running_reports(const std::string& folder) {
    if (!mem_tbb_tracker_is_inited() || mem_thread_state.in_tracker || mem_thread_state.holds_gate)
        return false;
    const std::unique_lock<std::mutex> one(mem_report_mutex, std::try_to_lock);
    if (!one.owns_lock()) return false;
    const THREAD_NOT_CANCELLED all_is_written;
    const MEM_BLOCK_TRACKING_SCOPE not_an_event;
    bool is_done = false;
    try {
        write_into(folder);
        is_done = true;
    } catch (const std::bad_alloc&) {
        is_done = false;
    }
    mem_set_report_folder({});
    return is_done;
}
