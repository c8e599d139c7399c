#include "platform/kept_stack.h"

#include <algorithm>

#include "platform/startup_modules.h"
#include "platform/unwind/plain_step.h"
#include "platform/unwind/rule_table.h"
#include "platform/unwind/stack_memory.h"

using namespace unwind;

namespace {

using FRAME = KEPT_STACK::FRAME;
using STEP = KEPT_STACK::STEP;

// A step by the rule, if that is one by two words: moves on to the caller, and fills in the frame and how.
inline bool step_plainly(FRAME_RULE rule, std::uint64_t stack_end, bool is_exact, FRAME& from,
                         STACK_WALK_START& frame) {
    const STACK_WALK_START here = frame;
    if (!take_plain_step(rule, stack_end, frame)) return false;
    from = {here.pc, here.sp,  here.bp,           rule.saves_bp_below_cfa() ? frame.sp + rule.slot() : 0,
            0,       is_exact, STEP::by_two_words};
    return true;
}

bool is_end(FRAME_RULE rule) {
    return !rule.is_none() && rule.kind() == RULE_KIND::end;
}

}  // namespace

// Where a walk is.
struct KEPT_STACK::WALKER {
    STACK_WALK_START frame;
    std::uint64_t stack_begin;
    std::uint64_t stack_end;
    std::uint32_t candidates;  // kept frames that may still be met
    bool is_exact = false;
    bool loader_seen = false;
    bool broke_off = false;  // the stack ended where it should not
    bool left_stack = false;

    bool on_stack() const { return frame.sp >= stack_begin && frame.sp < stack_end; }

    // To the caller; false when the stack ends.
    __attribute__((always_inline)) bool step(FRAME& from) {
        const FRAME_RULE rule = rule_table.find(frame.pc, is_exact);
        if (on_stack() && step_plainly(rule, stack_end, is_exact, from, frame)) [[likely]] {
            is_exact = false;
            return true;
        }
        from = {frame.pc, frame.sp, frame.bp, 0, 0, is_exact, STEP::other};
        if (!is_end(rule)) return step_slowly(from, rule.end_confirmed());
        from.step = STEP::stack_ends;
        return false;
    }

    __attribute__((noinline, cold)) bool step_slowly(FRAME& from, bool end_confirmed) {
        STACK_WALK walk(frame, is_exact, loader_seen);
        std::uint64_t pc = 0;
        const bool goes_on = walk.next(&pc, 1) == 1 && walk.next(&pc, 1) == 1;
        loader_seen = walk.has_seen_loader();
        // By now the rule is in the table.
        const FRAME_RULE rule = rule_table.find(frame.pc, is_exact);
        if (!goes_on) {
            if (is_end(rule)) from.step = STEP::stack_ends;
            broke_off = !is_end(rule) && !end_confirmed;
            return false;
        }
        const STACK_WALK_START next = walk.frame();
        STACK_WALK_START plainly = frame;
        if (on_stack() && step_plainly(rule, stack_end, is_exact, from, plainly) &&
            (walk.is_exact() || plainly != next))
            from.step = STEP::other;
        frame = next;
        is_exact = walk.is_exact();
        left_stack = left_stack || !on_stack();
        return true;
    }
};

// The words that the step from a kept frame to the next kept one has read.
inline bool KEPT_STACK::words_are_unchanged(std::uint32_t inner) const {
    const FRAME& frame = kept[inner];
    const FRAME& caller = kept[inner - 1];
    return frame.step == STEP::by_two_words && word_at(caller.sp - WORD) == caller.pc &&
           (frame.saved_bp == 0 || word_at(frame.saved_bp) == caller.bp);
}

// The stack still ends behind the outermost kept frame, which is as it was.
inline bool KEPT_STACK::end_is_unchanged(const WALKER& walker) const {
    if (kept[0].step == STEP::stack_ends) return true;
    WALKER behind = walker;
    behind.frame = {kept[0].pc, kept[0].sp, kept[0].bp};
    behind.is_exact = kept[0].is_exact;
    FRAME unused;
    return !behind.step(unused);
}

void KEPT_STACK::found_here(std::uint32_t unchanged, std::uint32_t count, bool cut) {
    found = kept;
    found_count = kept_count = count;
    unchanged_count = unchanged;
    found_is_cut = kept_is_cut = cut;
}

// The usual walk: the frames lie where kept ones lay, as after a call of another function from the same
// place, so that they take their places at once. False when they don't; what is left of the kept frames is
// right.
inline bool KEPT_STACK::walk_in_place(const STACK_WALK_START& start, std::uint64_t stack_end) {
    std::uint32_t count = kept_count;
    while (count > 0 && kept[count - 1].sp < start.sp) --count;
    if (count == 0 || kept[0].step == STEP::other || (kept_is_cut && count < depth)) return false;
    STACK_WALK_START frame = start;
    for (std::uint32_t at = count - 1; kept[at].sp == frame.sp; --at) {
        if (kept[at].pc == frame.pc && kept[at].bp == frame.bp && !kept[at].is_exact) {
            kept_count = at + 1;
            std::uint32_t last = at;
            while (last > 0 && words_are_unchanged(last)) --last;
            if (last > 0) return false;
            found_here(at + 1, count, kept_is_cut);
            return true;
        }
        kept_count = at;
        const FRAME_RULE rule = rule_table.find(frame.pc, false);
        if (at == 0 || !step_plainly(rule, stack_end, false, kept[at], frame)) return false;
    }
    return false;
}

// Whether the rest of the stack is the kept one. If only a part of it is, the walker goes on behind that
// part.
inline bool KEPT_STACK::joins(WALKER& walker) {
    while (walker.candidates > 0 && kept[walker.candidates - 1].sp < walker.frame.sp) --walker.candidates;
    if (walker.candidates == 0) return false;
    const std::uint32_t met = walker.candidates - 1;
    if (kept[met].sp != walker.frame.sp || kept[met].pc != walker.frame.pc ||
        kept[met].bp != walker.frame.bp || kept[met].is_exact != walker.is_exact)
        return false;
    std::uint32_t last = met;  // the outermost one that is as it was
    while (last > 0 && words_are_unchanged(last)) --last;
    const std::uint32_t whole = changed_count + walker.candidates;
    if (last == 0 && whole <= capacity && (kept_is_cut ? whole >= depth : end_is_unchanged(walker)))
        return true;
    go_on_behind(walker, last);
    return false;
}

// A part of the kept stack is as it was, out to the last of it. It counts as changed, since what is behind it
// is.
void KEPT_STACK::go_on_behind(WALKER& walker, std::uint32_t last) {
    for (std::uint32_t at = walker.candidates - 1; at > last && changed_count < capacity; --at)
        changed[changed_count++] = kept[at];
    walker.frame = {kept[last].pc, kept[last].sp, kept[last].bp};
    walker.is_exact = kept[last].is_exact;
    walker.candidates = last;
}

void KEPT_STACK::walk(const STACK_WALK_START& start) {
    const std::uint64_t end = known_stack.holds(start.sp) ? known_stack.end : end_of_stack_around(start.sp);
    if (end == start.sp) [[unlikely]] {
        walk_elsewhere(start);
        return;
    }
    const std::uint64_t now = rule_table.generation();
    if (generation != now) [[unlikely]] {
        kept_count = 0;
        generation = now;
    }
    if (!walk_in_place(start, end)) walk_and_join(start, end);
}

__attribute__((noinline)) void KEPT_STACK::walk_and_join(const STACK_WALK_START& start,
                                                         std::uint64_t stack_end) {
    // Less than is kept may be left of a stack that was cut: then its end is not known.
    WALKER walker{start, start.sp, stack_end, kept_count};
    changed_count = 0;
    bool joined = false, cut = false;
    do {
        joined = joins(walker);
        cut = !joined && changed_count == capacity;
        if (joined || cut) break;
    } while (walker.step(changed[changed_count++]));
    if (cut) changed_count = depth;
    const std::uint32_t unchanged = joined ? walker.candidates : 0;
    const std::uint32_t count = unchanged + changed_count;
    std::reverse_copy(changed, changed + changed_count, kept + unchanged);
    found_here(unchanged, count, cut || (joined && kept_is_cut));
    // Frames beyond the thread's own stack may be gone when the next walk comes.
    if (walker.left_stack) kept_count = unchanged;
    if (walker.broke_off && !rules_hold()) walk(start);
}

// On a stack that is not the thread's own, all of it may change hands between two walks.
void KEPT_STACK::walk_elsewhere(const STACK_WALK_START& start) {
    STACK_WALK walk(start);
    std::uint64_t pc = 0;
    found_count = 0;
    while (found_count < capacity && walk.next(&pc, 1) == 1)
        changed[found_count++] = {pc, walk.frame().sp, walk.frame().bp, 0, 0, walk.is_exact(), STEP::other};
    found_is_cut = found_count == capacity && walk.next(&pc, 1) == 1;
    if (found_is_cut) found_count = depth;
    std::reverse(changed, changed + found_count);
    found = changed;
    unchanged_count = 0;
}

bool KEPT_STACK::rules_hold() {
    for (std::uint32_t at = unchanged_count; at < found_count; ++at) {
        const FRAME& frame = found[at];
        if (startup_module_at(frame.pc) != nullptr) continue;
        const FRAME_RULE known = rule_table.find(frame.pc, frame.is_exact);
        if (known.is_none() || known.same_steps_as(compute_rule(frame.pc, frame.is_exact))) continue;
        rule_table.start_new_generation();
        forget();
        return false;
    }
    return true;
}

std::uint16_t KEPT_STACK::generation_of_rules() {
    return static_cast<std::uint16_t>(rule_table.generation());
}
