#include "mem/paths/call_paths.h"

#include <algorithm>
#include <atomic>

#include "mem/base/stripes.h"
#include "mem/paths/shared_region.h"
#include "platform/coarse_clock.h"

MEM_CALL_PATHS* mem_tbb_call_paths = nullptr;

namespace {

std::uint64_t next_identity() {
    static constinit std::atomic<std::uint64_t> latest{0};
    return latest.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Shares belong to no code, so that no change of the modules makes them unknown.
constexpr std::uint16_t generation_of_shares = 0;

}  // namespace

MEM_CALL_PATHS::MEM_CALL_PATHS(const void* allocator_function, std::uint32_t most_nodes, MEM_PATH_PLACE place)
    : memory(place),
      trie(memory),
      identity(next_identity()),
      allocator(module_around(allocator_function)),
      own_module(module_around(reinterpret_cast<const void*>(&next_identity))),
      made(memory.create(most_nodes) && trie.create()) {
    total.ignore_highest_blocks();
}

// None for the program's own file: a program that is linked with the allocator calls it from there.
MEM_CALL_PATHS::RANGE MEM_CALL_PATHS::module_around(const void* address) {
    const auto image = symbols::loaded_image_at(reinterpret_cast<std::uint64_t>(address));
    if (!image || image->loader_name.empty()) return {};
    return {image->begin, image->end};
}

// How many frames, from the outermost, lie outside of the way from the allocation to the event.
std::uint32_t MEM_CALL_PATHS::path_length(KEPT_STACK& frames, std::uint32_t skip) const {
    std::uint32_t length = frames.size() - std::min(skip, frames.size());
    while (length > 0) {
        const std::uint64_t pc = frames.frame(length - 1).pc;
        if (!allocator.holds(pc) && !own_module.holds(pc)) break;
        --length;
    }
    return length;
}

std::uint32_t MEM_CALL_PATHS::find(const STACK_WALK_START& start, std::uint32_t skip) {
    MEM_THREAD_STACK* thread = mem_thread_stack();
    if (thread == nullptr) return none;
    KEPT_STACK& frames = thread->frames;
    if (thread->owner != identity) [[unlikely]] {
        frames.forget();
        thread->owner = identity;
    }
    const std::uint16_t generation = KEPT_STACK::generation_of_rules();
    frames.walk(start);
    std::uint32_t length = path_length(frames, skip);
    const std::uint32_t tagged = std::min({thread->tagged, frames.unchanged(), length});
    WAY way{tagged, tagged > 0        ? frames.frame(tagged - 1).tag
                    : frames.is_cut() ? mem_path_deeper
                                      : mem_path_root};
    while (way.at < length) {
        KEPT_STACK::FRAME& frame = frames.frame(way.at);
        const std::uint32_t known = trie.find(way.node, frame.pc, generation);
        if (known == none) [[unlikely]] {
            if (!go_on(frames, length, generation, way)) return find(start, skip);
            break;
        }
        frame.tag = way.node = known;
        ++way.at;
    }
    if (frames.are_kept()) thread->tagged = way.at;
    if (way.at < length) return none;
    if (way.node == mem_path_root) return mem_path_deeper;  // nothing is known of the callers
    return account_of(way.node);
}

inline std::uint32_t MEM_CALL_PATHS::account_of(std::uint32_t node) {
    const std::uint32_t account = trie.account_of(node, MEM_PATH_TRIE::PATH::whole);
    if (account == none || !memory.region.counts(account).is_shared.get()) [[likely]]
        return account;
    const std::uint32_t share = share_of(node);
    return share != none ? share : account;
}

// Goes along frames whose nodes may have to be made, as far as they can be. False when a program counter is
// new and the walk to it turns out to be wrong: by rules that outlived their module.
__attribute__((noinline, cold)) bool MEM_CALL_PATHS::go_on(KEPT_STACK& frames, std::uint32_t length,
                                                           std::uint16_t generation, WAY& way) {
    if (!trie.note_pcs(way.at, length, [&](std::uint32_t at) { return frames.frame(at).pc; }) &&
        !frames.rules_hold())
        return false;
    for (std::uint32_t at = way.at; at < length; ++at)
        frames.frame(at).tag = trie.load_of(frames.frame(at).pc, generation);
    MEM_PATH_TRIE::INSERTION insertion(trie, generation, MEM_PATH_TRIE::PATH::whole);
    for (; way.at < length; ++way.at) {
        KEPT_STACK::FRAME& frame = frames.frame(way.at);
        const std::uint32_t child =
            insertion.child(way.node, frame.pc, static_cast<std::uint16_t>(frame.tag));
        if (child == none) break;
        frame.tag = way.node = child;
    }
    return true;
}

std::uint32_t MEM_CALL_PATHS::share_of(std::uint32_t node) {
    const std::uint64_t pc = mem_path_pc_share + mem_thread_stripe().index % mem_path_most_shares;
    std::uint32_t share = trie.find(node, pc, generation_of_shares);
    if (share == none)
        share = MEM_PATH_TRIE::INSERTION(trie, generation_of_shares, MEM_PATH_TRIE::PATH::whole)
                    .child(node, pc, 0);
    return share == none ? none : trie.account_of(share, MEM_PATH_TRIE::PATH::whole);
}

std::uint32_t MEM_CALL_PATHS::find_for_cut_path(std::uint64_t site_pc) {
    memory.region.header->shortened_events.word().fetch_add(1, std::memory_order_relaxed);
    if (site_pc == 0) return mem_path_deeper;
    const std::uint16_t generation = KEPT_STACK::generation_of_rules();
    const std::uint16_t load = trie.load_of(site_pc, generation);
    const std::uint32_t node = MEM_PATH_TRIE::INSERTION(trie, generation, MEM_PATH_TRIE::PATH::cut)
                                   .child(mem_path_deeper, site_pc, load);
    return node == none ? none : trie.account_of(node, MEM_PATH_TRIE::PATH::cut);
}

void MEM_CALL_PATHS::note_site(std::uint32_t account, std::uint32_t site, std::uint64_t site_pc) {
    MEM_PATH_HEADER& header = *memory.region.header;
    const MEM_LOCK_SCOPE guard(site_lock);
    for (std::uint32_t next = header.sites.get(); next <= site && memory.reserve_site(next); ++next)
        header.sites.publish(next + 1);
    if (site < header.sites.get()) memory.region.site(site).set(site_pc);
    // Whoever sees the number sees the record that has it.
    memory.region.counts(account).site.publish(site + 1);
}

bool MEM_CALL_PATHS::charge(MEM_TURN& turn, std::uint32_t account, const MEM_PATH_BLOCK& block) {
    const std::int64_t peak = memory.region.header->peak_bytes.get();
    MEM_PATH_FIGURES(memory.region, account, peak).add(block);
    if (MEM_THREAD_STACK* thread = mem_thread_stack_of_this) thread->latest_block = block.address;
    total.charge(turn, block.allocated, block.allocated);
    return total.highest_bytes() != peak;
}

bool MEM_CALL_PATHS::charge_unseen(MEM_TURN& turn, const MEM_PATH_BLOCK& block) {
    const std::int64_t peak = memory.region.header->peak_bytes.get();
    MEM_PATH_FIGURES(memory.region, mem_path_unseen, peak).add_requested_ever(block.requested);
    return charge(turn, mem_path_unseen, {block.address, 0, block.allocated});
}

void MEM_CALL_PATHS::discharge(MEM_TURN& turn, std::uint32_t account, const MEM_PATH_BLOCK& block) {
    const MEM_THREAD_STACK* thread = mem_thread_stack_of_this;
    const bool is_temporary = thread != nullptr && thread->latest_block == block.address;
    MEM_PATH_FIGURES(memory.region, account, memory.region.header->peak_bytes.get())
        .remove(block, is_temporary);
    total.discharge(turn, block.allocated);
}

// The total has passed all before, in this event or in that of another thread.
void MEM_CALL_PATHS::note_peak(std::uint64_t event) {
    MEM_PATH_HEADER& header = *memory.region.header;
    const std::int64_t highest = total.highest_bytes();
    std::int64_t before = header.peak_bytes.get();
    do {
        if (before >= highest) return;
    } while (!header.peak_bytes.word().compare_exchange_weak(before, highest, std::memory_order_relaxed));
    header.peak_event.set(event);
    header.peak_ms.set(static_cast<std::uint64_t>(coarse_clock_ms()));
}

void MEM_CALL_PATHS::clear() {
    MEM_PATH_HEADER& header = *memory.region.header;
    for (std::uint32_t number = 0; number < header.accounts.get(); ++number) {
        MEM_PATH_COUNTS& counts = memory.region.counts(number);
        MEM_PATH_LATE_COUNTS& late = memory.region.late_counts(number);
        for (auto* word : {&counts.bytes, &counts.blocks, &counts.cumulative_bytes, &counts.cumulative_blocks,
                           &counts.cumulative_requested_bytes, &counts.requested_bytes, &counts.peak_mark,
                           &late.temporary_blocks, &late.peak_bytes, &late.peak_blocks})
            word->set(0);
        counts.site.set(0);
    }
    total.clear();
    total.ignore_highest_blocks();
    header.sites.set(0);
    header.shortened_events.set(0);
    header.peak_bytes.set(0);
    header.peak_event.set(0);
    header.peak_ms.set(0);
}

int mem_take_call_path_region() {
    return mem_tbb_call_paths != nullptr ? mem_tbb_call_paths->take_descriptor() : -1;
}
