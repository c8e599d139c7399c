#include "mem/attribution/call_sites.h"

#include <cstring>
#include <vector>

#include "mem/attribution/frame_filters.h"
#include "mem/attribution/symbolizer.h"
#include "mem/base/internal_error.h"

constinit MEM_SPIN_LOCK mem_call_site_lock;
MEM_CALL_SITE_TABLE* mem_tbb_call_sites = nullptr;
constinit MEM_PLAIN_WORD<bool> mem_tbb_incomplete_fileline;
constinit MEM_PLAIN_WORD<bool> mem_tbb_any_frame_filtered;

namespace {

// When the frame itself is filtered, the innermost of the functions that it was inlined into and that is not
// takes its place.
void try_further_frames(MEM_CALL_SITE_TEXT& text, const std::vector<MEM_STACK_FRAME>& further_frames) {
    for (const MEM_STACK_FRAME& further : further_frames) {
        if (mem_frame_is_filtered(further.file, further.function)) continue;
        text.frame = further;
        text.is_filtered = false;
        return;
    }
}

}  // namespace

MEM_CALL_SITE_TEXT mem_name_call_site(std::uint64_t pc) {
    MEM_CALL_SITE_TEXT text;
    MEM_STACK_FRAME& frame = text.frame;
    frame.pc = pc;
    mem_require(mem_tbb_symbolizer != nullptr, mem_conditions::symbolizer_serves);
    mem_tbb_symbolizer->get_module_name(pc, frame);
    if (mem_module_is_filtered(frame.module)) return text;
    std::vector<MEM_STACK_FRAME> further_frames;
    mem_tbb_symbolizer->get_stack_frames(pc, frame, further_frames);
    if (mem_tbb_incomplete_fileline && frame.file[0] == '\0') std::strcpy(frame.file, "Unknown");
    text.is_filtered = mem_frame_is_filtered(frame.file, frame.function);
    if (text.is_filtered) try_further_frames(text, further_frames);
    return text;
}

MEMORY_TRACKER_BASE MEM_CALL_SITE::counters() {
    MEMORY_TRACKER_BASE all = tally.read();
    all.peak_blocks = peak_blocks;
    all.peak_bytes = peak_bytes;
    return all;
}

MEM_ADDRESS_TRACKER MEM_CALL_SITE::copy() {
    MEM_ADDRESS_TRACKER out;
    out.frame = frame;
    out.is_filtered = is_filtered;
    static_cast<MEMORY_TRACKER_BASE&>(out) = counters();
    MEM_MODULE_ENTRY* module = module_tracker.load(std::memory_order_acquire);
    out.module_tracker = module != nullptr ? &module->sampled : nullptr;
    return out;
}

// With the lock held. Whatever needs memory comes first, so that a record is made wholly or not at all.
std::pair<MEM_CALL_SITE&, bool> MEM_CALL_SITE_TABLE::make(std::uint64_t pc) {
    numbered.reserve(numbered.size() + 1);
    index.make_room();
    const auto [entry, is_new] = map.try_emplace(pc);
    return {entry->second, is_new};
}

MEM_CALL_SITE& MEM_CALL_SITE_TABLE::number_anew(MEM_CALL_SITE& site) {
    site.number = numbered.size();
    numbered[site.number] = &site;
    numbered.set_size(site.number + 1);
    return site;
}

MEM_CALL_SITE& MEM_CALL_SITE_TABLE::find_or_make(std::uint64_t pc, const MEM_CALL_SITE_TEXT& text) {
    if (text.is_filtered) mem_tbb_any_frame_filtered = true;
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    const auto [site, is_new] = make(pc);
    if (is_new) {
        site.frame = text.frame;
        site.is_filtered = text.is_filtered;
        index.insert(pc, &number_anew(site));
    }
    return site;
}

MEM_CALL_SITE& MEM_CALL_SITE_TABLE::other() {
    // Acquire: who sees the record sees it made.
    if (MEM_CALL_SITE* known = other_record.load(std::memory_order_acquire)) return *known;
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    const auto [site, is_new] = make(0);
    if (is_new) other_record.store(&number_anew(site), std::memory_order_release);
    return site;
}

void MEM_CALL_SITE_TABLE::clear() {
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    index.clear();
    other_record.store(nullptr, std::memory_order_relaxed);
    numbered.set_size(0);
    map.clear();
}
