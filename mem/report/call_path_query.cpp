#include <algorithm>
#include <string>
#include <vector>

#include "ktl_mem/queries.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/paths/call_paths.h"
#include "mem/report/call_path_names.h"
#include "mem/report/report_line.h"

namespace {

// Innermost first; frames beyond the depth, and what stands for no frame, are left out.
std::vector<MEM_PATH_FRAME> frames_of(const MEM_PATH_REGION& region, std::uint32_t node) {
    std::vector<MEM_PATH_FRAME> frames;
    for (; node >= mem_path_first_node; node = region.node(node).parent)
        frames.push_back({region.node(node).pc, region.node(node).load});
    return frames;
}

std::string text_of(const MEM_PATH_LEVEL& level) {
    MEM_REPORT_LINE line;
    line.text("  ").text(level.function.empty() ? "?" : level.function);
    if (!level.file.empty()) line.text(" (").text(level.file).text(":").number(level.line).text(")");
    if (!level.module.empty()) line.text(" [").text(level.module).text("]");
    return line.take();
}

}  // namespace

std::string mem_get_largest_call_path(MEM_CALL_PATH_MOMENT moment) {
    if (!mem_tbb_tracker_is_inited() || mem_tbb_call_paths == nullptr) return {};
    const MEM_LOCKED_CALL_SCOPE not_an_event;
    const MEM_PATH_REGION& region = mem_tbb_call_paths->region();
    const MEM_PATH_SNAPSHOT snapshot = mem_copy_call_paths(region);
    const bool now = moment == MEM_CALL_PATH_MOMENT::NOW;
    const auto bytes = now ? &MEM_PATH_ROW::bytes : &MEM_PATH_ROW::peak_bytes;
    const auto blocks = now ? &MEM_PATH_ROW::blocks : &MEM_PATH_ROW::peak_blocks;
    const auto largest = std::ranges::max_element(snapshot.rows, {}, bytes);
    if (largest == snapshot.rows.end() || (*largest).*bytes <= 0) return {};
    MEM_REPORT_LINE head;
    head.number((*largest).*bytes).text(" bytes in ").number((*largest).*blocks).text(" blocks");
    std::string text = head.take();
    mem_name_path_frames(
        frames_of(region, largest->node),
        [&](std::size_t, std::size_t, const MEM_PATH_LEVEL& level) { text += "\n" + text_of(level); });
    return text;
}
