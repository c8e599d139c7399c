#include "mem/tracker/attribution_stage.h"

#include <algorithm>
#include <mutex>
#include <new>

#include "mem/attribution/address_table.h"
#include "mem/attribution/code_names.h"
#include "mem/base/gate.h"
#include "mem/base/internal_error.h"
#include "mem/base/tracker_phase.h"
#include "mem/paths/call_paths.h"
#include "mem/timeline/module_timelines.h"
#include "mem/tracker/event_numbers.h"
#include "mem/tracker/tracker_state.h"
#include "platform/thread.h"

namespace {

// How far a stack is searched for a frame that is not filtered.
constexpr int first_frames = 11;
constexpr int most_frames = first_frames + 50;

// The frames that a walk from a hook does not see, and that the ignore depth counts: walker, this stage,
// event body and hook.
constexpr int frames_behind_start = 4;

// Blocks above this size are freed on other threads by design and do not count as mismatched.
constexpr std::uint64_t largest_mismatched_block = 8128;

// The frames that the search looks at: what remains of the most after those that an ignore depth below the
// hook's would have shown, and where the search begins.
struct SEARCH_WINDOW {
    int skip;
    int frames;
};

SEARCH_WINDOW search_window() {
    const int beyond_start = std::max<int>(MEM_STACK_TRACE_IGNORE_DEPTH, 0) - frames_behind_start;
    // Frames of this library are filtered like any other of its module, so they only use up the window.
    return {std::max(beyond_start, 0), most_frames + std::min(beyond_start, 0)};
}

// Steps over the frames that the window skips, which have no record to keep theirs.
constexpr int most_learnt_skips = 4;
STACK_STEP skipped_steps[most_learnt_skips];

// The record that is charged, found by steps that earlier walks have learnt; null when the walker must look.
MEM_CALL_SITE* find_by_learnt_steps(const STACK_WALK_START& start, const SEARCH_WINDOW& window) {
    if (window.skip > most_learnt_skips) return nullptr;
    const std::uint64_t stack_end = known_stack_end(start.sp);
    STACK_WALK_START frame = start;
    for (int i = 0; i < window.skip; ++i)
        if (!skipped_steps[i].take(frame, stack_end)) return nullptr;
    for (int i = 0; i < window.frames; ++i) {
        MEM_CALL_SITE* site = mem_tbb_call_sites->find(frame.pc);
        if (site == nullptr || !site->is_filtered) return site;
        if (!site->step.take(frame, stack_end)) return nullptr;
    }
    return nullptr;
}

// The same by a walk; null when it meets a program counter without a record.
__attribute__((noinline)) MEM_CALL_SITE* find_by_walk(const STACK_WALK_START& start,
                                                      const SEARCH_WINDOW& window, bool fresh) {
    STACK_WALK walk(start, fresh);
    std::uint64_t pc = 0;
    for (int i = -window.skip; i < window.frames && walk.next(&pc, 1) == 1; ++i) {
        if (i < 0) {
            if (window.skip <= most_learnt_skips) skipped_steps[window.skip + i].learn(pc);
            continue;
        }
        MEM_CALL_SITE* site = mem_tbb_call_sites->find(pc);
        if (site == nullptr || !site->is_filtered) return site;
        site->step.learn(pc);
    }
    return &mem_tbb_call_sites->other();
}

// Whether a search ends at the program counter, which has a record from then on, or has no need of one.
bool name_and_see_if_it_ends(std::uint64_t pc) {
    {
        const MEM_GATE_SCOPE inside(*mem_tbb_gate, MEM_MOUSE);
        if (mem_tbb_tracker_has_ended()) return true;
        if (const MEM_CALL_SITE* known = mem_tbb_call_sites->find(pc)) return !known->is_filtered;
    }
    const MEM_CALL_SITE_TEXT text = mem_name_call_site(pc);
    const MEM_GATE_SCOPE inside(*mem_tbb_gate, MEM_MOUSE);
    return mem_tbb_tracker_has_ended() || !mem_tbb_call_sites->find_or_make(pc, text).is_filtered;
}

// The module of a call site: the one that its record points at, or the entry of its name while it points at
// none. Acquire: who sees the entry sees it made.
MEM_MODULE_ENTRY& module_of(MEM_TURN& turn, const MEM_CALL_SITE& site) {
    if (MEM_MODULE_ENTRY* known = site.module_tracker.load(std::memory_order_acquire)) [[likely]]
        return *known;
    const char* name = site.frame.module[0] != '\0' ? site.frame.module : "OTHER";
    MEM_MODULE_ENTRY* entry = nullptr;
    turn.step_out([&] { entry = &mem_tbb_module_trackers->find_or_create(name); });
    return *entry;
}

bool asks_for_path(std::uint32_t word) {
    return (word & MEM_TRACKING_CALL_PATHS) != 0 && mem_tbb_call_paths != nullptr;
}

// A path for which no node could be made is cut to its call site.
std::uint32_t account_of_cut_path(const MEM_CALL_SITE& site) {
    const std::uint32_t account = mem_tbb_call_paths->find_for_cut_path(site.frame.pc);
    if (account != MEM_CALL_PATHS::none) mem_tbb_call_paths->note_site(account, site.number, site.frame.pc);
    return account;
}

MEM_ADDRESS_ENTRY entry_of(const MEM_CALL_SITE& site, const MEM_ALLOCATION& made, std::uint32_t thread_id) {
    std::uint32_t account = made.account;
    if (asks_for_path(made.word) && account == MEM_CALL_PATHS::none) [[unlikely]]
        account = account_of_cut_path(site);
    if (account == MEM_CALL_PATHS::none) return MEM_ADDRESS_ENTRY::of_call_site(site.number, thread_id);
    const std::uint64_t asked_for = std::min(made.block.requested, made.block.allocated);
    return MEM_ADDRESS_ENTRY::of_path(account, thread_id, made.block.allocated - asked_for);
}

void note_if_peak(bool is_peak) {
    if (is_peak) mem_tbb_call_paths->note_peak(mem_events_numbered());
}

// Enters the block and charges its path, if it has one. False when there is no memory for an entry.
bool enter(MEM_TURN& turn, const MEM_CALL_SITE& site, const MEM_ALLOCATION& made) {
    const std::uint32_t thread_id = (made.word & MEM_TRACKING_PER_FILELINE) != 0 ? _Thrd_id() : 0;
    const MEM_ADDRESS_ENTRY entry = entry_of(site, made, thread_id);
    const auto mark = MEM_BLOCK_MARK::of_charge(entry.as_word(), made.bins);
    if (!mem_address_table->put(turn, made.block.address, mark)) return false;
    if (entry.is_path()) note_if_peak(mem_tbb_call_paths->charge(turn, entry.account(), made.block));
    return true;
}

void sample_modules(MEM_TURN& turn) {
    turn.step_out([] { mem_tbb_module_timelines->sample(*mem_tbb_module_trackers); });
}

// Takes a freed block off its path, if it has one, and returns its call site. A block whose allocation was
// not seen counts against what could not be attributed, among the paths, too.
MEM_CALL_SITE& discharge_path(MEM_TURN& turn, const MEM_ADDRESS_ENTRY* entry, std::uint64_t address,
                              std::uint64_t allocated, std::uint32_t word) {
    if (entry == nullptr) {
        if (asks_for_path(word))
            mem_tbb_call_paths->discharge(turn, mem_path_unseen, {address, 0, allocated});
        return mem_tbb_call_sites->other();
    }
    if (entry->is_path())
        mem_tbb_call_paths->discharge(turn, entry->account(),
                                      {address, allocated - entry->spare_bytes(), allocated});
    return mem_call_site_of(*entry);
}

}  // namespace

MEM_CALL_SITE* mem_find_call_site(const STACK_WALK_START& start) {
    const SEARCH_WINDOW window = search_window();
    MEM_CALL_SITE* site = find_by_learnt_steps(start, window);
    return site != nullptr ? site : find_by_walk(start, window, false);
}

// A program counter is new: its stack is walked with rules made from the unwind tables and not from the
// walker's memory, which may stem from a module that was unloaded since.
__attribute__((noinline)) bool mem_name_call_sites(const STACK_WALK_START& start) try {
    if (!mem_has_room_for_naming()) return false;
    const THREAD_NOT_CANCELLED symbol_files_are_read;
    const SEARCH_WINDOW window = search_window();
    STACK_WALK walk(start, true);
    std::uint64_t pc = 0;
    for (int i = -window.skip; i < window.frames && walk.next(&pc, 1) == 1; ++i)
        if (i >= 0 && name_and_see_if_it_ends(pc)) break;
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

MEM_CALL_SITE& mem_call_site_of(const MEM_ADDRESS_ENTRY& entry) {
    return mem_tbb_call_sites->by_number(entry.is_path() ? mem_tbb_call_paths->site_of(entry.account()) - 1
                                                         : entry.call_site());
}

std::uint32_t mem_find_path(std::uint32_t word, const STACK_WALK_START& start) {
    if (!asks_for_path(word)) return MEM_CALL_PATHS::none;
    return mem_tbb_call_paths->find(start, static_cast<std::uint32_t>(search_window().skip));
}

// The record that a path is charged to is searched for once.
MEM_CALL_SITE* mem_find_call_site_of(std::uint32_t account, const STACK_WALK_START& start) {
    if (account == MEM_CALL_PATHS::none) return mem_find_call_site(start);
    const std::uint32_t known = mem_tbb_call_paths->site_of(account);
    if (known != 0) [[likely]]
        return &mem_tbb_call_sites->by_number(known - 1);
    MEM_CALL_SITE* site = mem_find_call_site(start);
    if (site != nullptr) mem_tbb_call_paths->note_site(account, site->number, site->frame.pc);
    return site;
}

// Without an entry the block is charged to what its free will come off.
void mem_attribute_alloc(MEM_TURN& turn, MEM_CALL_SITE* found, MEM_ALLOCATION& made) {
    const auto& [address, requested, allocated] = made.block;
    const bool is_entered = found != nullptr && enter(turn, *found, made);
    MEM_CALL_SITE& site = is_entered ? *found : mem_tbb_call_sites->other();
    if (!is_entered) [[unlikely]] {
        made.bins = 0;
        if (asks_for_path(made.word)) note_if_peak(mem_tbb_call_paths->charge_unseen(turn, made.block));
    }
    if ((made.word & mem_call_site_counter_bits) != 0) site.tally.charge(turn, requested, allocated);
    if ((made.word & MEM_TRACKING_PER_LIBRARY) == 0) return;
    MEM_MODULE_ENTRY& module = module_of(turn, site);
    module.tally.charge(turn, requested, allocated);
    if (site.module_tracker.load(std::memory_order_relaxed) == nullptr) [[unlikely]]
        site.module_tracker.store(&module, std::memory_order_release);
    if (made.sampling_point) [[unlikely]]
        sample_modules(turn);
}

std::uint32_t mem_attribute_dealloc(MEM_TURN& turn, std::uint64_t address, std::uint64_t allocated,
                                    std::uint32_t word, bool sampling_point) {
    const MEM_BLOCK_MARK mark =
        mem_address_table->take(turn, address,
                                (word & MEM_TRACKING_PROFILE_BIN_TAGS) != 0 ? MEM_BLOCK_MARK::both_halves
                                                                            : MEM_BLOCK_MARK::charge_half);
    const bool known = mark.has_charge();
    const auto entry = MEM_ADDRESS_ENTRY::of_word(mark.charge);
    MEM_CALL_SITE& site = discharge_path(turn, known ? &entry : nullptr, address, allocated, word);
    const bool is_mismatched = known && (word & MEM_TRACKING_PER_FILELINE) != 0 &&
                               allocated <= largest_mismatched_block && entry.thread_id() != _Thrd_id();
    if ((word & mem_call_site_counter_bits) != 0)
        site.tally.discharge(turn, allocated, is_mismatched ? allocated : 0);
    if ((word & MEM_TRACKING_PER_LIBRARY) == 0) return mark.bins();
    module_of(turn, site).tally.discharge(turn, allocated);
    if (sampling_point) [[unlikely]]
        sample_modules(turn);
    return mark.bins();
}
