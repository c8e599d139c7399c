// A step of the walk, hot and cold:
//
//   next                       the rule is in the table, sp and bp suffice, the frame lies in known memory
//     step_slowly              everything else
//       current_rule           ... a rule that is not in the table
//       apply                  ... frames of other kinds, memory that must be probed
//       retry_without_table    ... a stack that breaks off
//
// No rule is trusted: the CFA must lie above sp, so that a walk always gets on, and every word that is read
// lies in the thread's stack or in a page that was probed. A wrong rule costs wrong frames and nothing else.
#include "platform/stack_walk.h"

#include <link.h>
#include <ucontext.h>

#include <cstddef>

#include "platform/startup_modules.h"
#include "platform/unwind/frame_rule.h"
#include "platform/unwind/plain_step.h"
#include "platform/unwind/register_walk.h"
#include "platform/unwind/rule_table.h"
#include "platform/unwind/stack_memory.h"

using namespace unwind;

namespace {

constexpr std::uint64_t RED_ZONE = 128;  // bytes below sp that a signal leaves alone
constexpr std::uint64_t ADDRESS_END = std::uint64_t{1} << 47;
constexpr std::uint64_t LARGEST_GUESSED_FRAME = std::uint64_t{1} << 20;
constexpr std::int32_t MOST_SIGNAL_FRAMES = 16;
constexpr std::int32_t MOST_SCOUTED_FRAMES = 4096;

// True while some thread maps or unmaps a module. No lock: the loader's note for debuggers.
bool loader_is_at_work() {
    return static_cast<const volatile r_debug&>(_r_debug).r_state != r_debug::RT_CONSISTENT;
}

}  // namespace

STACK_WALK::STACK_WALK(const STACK_WALK_START& start, bool fresh)
    : frame_(start), start_(start), fresh_(fresh) {
    find_readable();
}

STACK_WALK::STACK_WALK(const STACK_WALK_START& frame, bool exact, bool loader_seen) : STACK_WALK(frame) {
    exact_ = exact;
    loader_seen_ = loader_seen;
}

inline void STACK_WALK::find_readable() {
    readable_begin_ = frame_.sp;
    on_own_stack_ = known_stack.holds(frame_.sp);
    if (!on_own_stack_) [[unlikely]]
        on_own_stack_ = find_own_stack();
    readable_end_ = on_own_stack_ ? known_stack.end : end_of_page(frame_.sp);
}

bool STACK_WALK::find_own_stack() {
    if (is_scout_) return false;
    if (end_of_stack_around(frame_.sp) != frame_.sp) return true;
    if (may_be_deeper_in_stack(frame_.sp)) widen_known_stack(frame_.sp, leads_to_known_stack());
    return known_stack.holds(frame_.sp);
}

// A walk ahead that probes every page, along frames that the information itself describes.
bool STACK_WALK::leads_to_known_stack() const {
    STACK_WALK scout(*this);
    scout.is_scout_ = scout.fresh_ = true;
    scout.on_own_stack_ = false;
    scout.readable_end_ = end_of_page(frame_.sp);
    std::uint64_t pc = 0;
    for (std::int32_t i = 0; i < MOST_SCOUTED_FRAMES && scout.next(&pc, 1) == 1; ++i) {
        if (known_stack.holds(scout.frame_.sp)) return true;
    }
    return false;
}

std::int32_t STACK_WALK::next(std::uint64_t* pcs, std::int32_t max_frames) {
    const std::int32_t before = frames_given_;
    std::int32_t count = 0;
    if (before == 0 && max_frames > 0 && frame_.pc != 0) pcs[count++] = frame_.pc;
    STACK_WALK_START frame = frame_;
    while (count < max_frames) {
        const FRAME_RULE rule = fresh_ ? FRAME_RULE{} : rule_table.find(frame.pc, exact_);
        if (take_plain_step(rule, readable_end_, frame)) [[likely]] {
            exact_ = false;
        } else {
            frame_ = frame;
            frames_given_ = before + count;
            if (!step_slowly()) break;
            frame = frame_;
        }
        pcs[count++] = frame.pc;
    }
    if (count == max_frames) frame_ = frame;
    frames_given_ = before + count;
    return count;
}

bool STACK_WALK::step_slowly() {
    if (frame_.pc == 0) return false;
    const FRAME_RULE rule{current_rule()};
    if (rule.in_loader() && !loader_seen_ && loader_is_at_work()) {
        // The loader is about to map a module, perhaps where another one was: forget the rules of that one.
        loader_seen_ = true;
        rule_table.start_new_generation();
    }
    if (rule.kind() != RULE_KIND::end) {
        if (apply(rule.bits) || retry_without_table(rule.bits)) return true;
    }
    frame_.pc = 0;
    return false;
}

// The rule for frame_.pc from the table, or worked out and put there.
std::uint64_t STACK_WALK::current_rule() {
    const FRAME_RULE known = rule_table.find(frame_.pc, exact_);
    if (!known.is_none() && (!fresh_ || startup_module_at(frame_.pc) != nullptr)) return known.bits;
    const FRAME_RULE rule = compute_rule(frame_.pc, exact_);
    if (known.same_steps_as(rule)) return rule.bits;
    if (!known.is_none()) rule_table.start_new_generation();
    rule_table.store(frame_.pc, exact_, rule);
    return rule.bits;
}

bool STACK_WALK::apply(std::uint64_t bits) {
    const FRAME_RULE rule{bits};
    if (rule.kind() == RULE_KIND::signal) return leave_signal_frame();
    if (rule.kind() == RULE_KIND::guess) return follow_guess();
    if (rule.kind() == RULE_KIND::all_registers) return follow_all_registers();
    std::uint64_t cfa = (rule.base_is_bp() ? frame_.bp : frame_.sp) + rule.offset();
    if (rule.kind() == RULE_KIND::dereference) {
        if (!load(cfa, &cfa)) return false;
        cfa += rule.addend();
    }
    std::uint64_t bp = frame_.bp;
    switch (rule.saved_bp()) {
        case SAVED_BP::in_place:
            return enter(cfa, bp);
        case SAVED_BP::below_cfa:
            return load(cfa + rule.slot(), &bp) && enter(cfa, bp);
        case SAVED_BP::near_bp:
            return load(frame_.bp + rule.slot(), &bp) && enter(cfa, bp);
        case SAVED_BP::near_sp:
            return load(frame_.sp + rule.slot(), &bp) && enter(cfa, bp);
    }
    return false;
}

// Code without call frame information, such as generated code: most of it keeps a frame pointer.
bool STACK_WALK::follow_guess() {
    std::uint64_t bp = 0;
    if (frame_.bp < frame_.sp || frame_.bp - frame_.sp > LARGEST_GUESSED_FRAME) return false;
    return load(frame_.bp, &bp) && enter(frame_.bp + 2 * WORD, bp);
}

bool STACK_WALK::follow_all_registers() {
    STACK_WALK_START caller = frame_;
    return step_by_all_registers(&caller) && enter(caller.sp, caller.bp);
}

bool STACK_WALK::enter(std::uint64_t cfa, std::uint64_t bp) {
    std::uint64_t pc = 0;
    if (cfa < frame_.sp + WORD || !load(cfa - WORD, &pc) || !may_be_code(pc)) return false;
    frame_ = {pc, cfa, bp};
    exact_ = false;
    return true;
}

// A handler returns to code of the C library that finds the interrupted registers in a ucontext at sp.
bool STACK_WALK::leave_signal_frame() {
    constexpr std::uint64_t SAVED_BP_PLACE = offsetof(ucontext_t, uc_mcontext.gregs[REG_RBP]);
    constexpr std::uint64_t SAVED_SP_PLACE = offsetof(ucontext_t, uc_mcontext.gregs[REG_RSP]);
    constexpr std::uint64_t SAVED_PC_PLACE = offsetof(ucontext_t, uc_mcontext.gregs[REG_RIP]);
    STACK_WALK_START interrupted;
    // They may lead anywhere, also back to this frame.
    if (++signal_frames_ > MOST_SIGNAL_FRAMES) return false;
    if (!load(frame_.sp + SAVED_BP_PLACE, &interrupted.bp)) return false;
    if (!load(frame_.sp + SAVED_SP_PLACE, &interrupted.sp)) return false;
    if (!load(frame_.sp + SAVED_PC_PLACE, &interrupted.pc) || !may_be_code(interrupted.pc)) return false;
    frame_ = interrupted;
    exact_ = true;
    find_readable();
    return true;
}

// A stack that breaks off before its outermost frame may have been led astray by a rule that outlived its
// module, so it is walked again by the information itself, once for each place where that happens.
bool STACK_WALK::retry_without_table(std::uint64_t bits) {
    if (fresh_ || FRAME_RULE{bits}.end_confirmed()) return false;
    STACK_WALK again(start_, true);
    std::uint64_t pc = 0;
    for (std::int32_t i = 0; i < frames_given_; ++i) again.next(&pc, 1);
    astray_ = again.frame_.pc != frame_.pc || again.frame_.sp != frame_.sp;
    if (astray_) return false;
    const bool goes_on = again.next(&pc, 1) == 1;
    if (goes_on) {
        *this = again;
        fresh_ = false;
    } else {
        rule_table.store(frame_.pc, exact_, FRAME_RULE{bits}.with(FRAME_RULE::END_CONFIRMED));
    }
    return goes_on;
}

bool STACK_WALK::load(std::uint64_t address, std::uint64_t* value) {
    // Where a function is about to return, its information still names slots that were popped already.
    const std::uint64_t lowest = exact_ ? frame_.sp - RED_ZONE : frame_.sp;
    if (address < lowest || address >= ADDRESS_END) return false;
    if (address < frame_.sp) {
        if (!page_is_readable(address)) return false;
    } else if (address < readable_begin_ || address + WORD > readable_end_) {
        if (on_own_stack_ || !probe(address) || !probe(address + WORD - 1)) return false;
    }
    *value = word_at(address);
    return true;
}

// Makes the page of address readable on a stack that is not the thread's own.
bool STACK_WALK::probe(std::uint64_t address) {
    const std::uint64_t page = address & ~(PAGE_SIZE_IN_BYTES - 1);
    if (address >= readable_begin_ && address < readable_end_) return true;
    if (!page_is_readable(page)) return false;
    // One range is enough: the last word that a step reads lies highest, and the next frame begins there.
    if (page != readable_end_) readable_begin_ = page;
    readable_end_ = page + PAGE_SIZE_IN_BYTES;
    return true;
}
