// A walk of the calling thread's stack that steps over what has changed since the last one and only compares
// the rest.
//
// Two stacks of a thread in a row mostly share all but their innermost frames, so the frames of the last walk
// are kept. A step from a frame to its caller is a function of three registers, of the rule for the program
// counter, and of two words on the stack: the return address below the frame's end, and the saved bp where
// one was saved. Where a new walk comes to a frame that the kept list has, with the same registers, it reads
// these two words of each frame from there outwards. As long as they are what they were, so are the frames.
//
// Nothing here allocates, takes a lock, waits for the loader or changes errno. Of one thread alone; what an
// interrupting signal handler does must not come here.
#pragma once

#include <cstdint>

#include "platform/stack_walk.h"

class KEPT_STACK {
  public:
    // Of a stack with more frames than the capacity at least the innermost ones are kept, as many as the
    // depth. What lies outside of them stays left out while it can, so that a recursion that goes up and down
    // in front of it finds its outer frames unchanged.
    static constexpr std::uint32_t depth = 128;
    static constexpr std::uint32_t capacity = 256;

    enum class STEP : std::uint8_t { by_two_words, stack_ends, other };

    struct FRAME {
        std::uint64_t pc;
        std::uint64_t sp;
        std::uint64_t bp;
        std::uint64_t saved_bp;  // where the caller's bp was saved; 0 when it still is the frame's own
        std::uint32_t tag;       // the caller's own, kept with the frame
        bool is_exact;           // pc is where a signal interrupted the frame
        STEP step;               // to the frame's caller
    };

    // Walks the stack. What the last walk found becomes invalid.
    void walk(const STACK_WALK_START& start);

    // The frames of the last walk, outermost first. The first unchanged() of them stayed as they were, with
    // their tags; the others were stepped over and have none.
    std::uint32_t size() const { return found_count; }
    std::uint32_t unchanged() const { return unchanged_count; }
    FRAME& frame(std::uint32_t at) { return found[at]; }
    // The stack goes on beyond its outermost frame here.
    bool is_cut() const { return found_is_cut; }
    // The frames are kept for the next walk, as are their tags. Not on a stack that isn't the thread's own.
    bool are_kept() const { return found == kept && kept_count == found_count; }

    // By which rules walks are made now; another number after modules have come or gone.
    static std::uint16_t generation_of_rules();

    // Whether the rules by which the changed frames were stepped over are those of the modules that are
    // loaded now. If not, the walk was wrong, and every kept frame is forgotten.
    bool rules_hold();

    void forget() { kept_count = 0; }

  private:
    struct WALKER;
    void found_here(std::uint32_t unchanged, std::uint32_t count, bool cut);
    bool walk_in_place(const STACK_WALK_START& start, std::uint64_t stack_end);
    void walk_and_join(const STACK_WALK_START& start, std::uint64_t stack_end);
    void walk_elsewhere(const STACK_WALK_START& start);
    bool joins(WALKER& walker);
    bool words_are_unchanged(std::uint32_t inner) const;
    bool end_is_unchanged(const WALKER& walker) const;
    void go_on_behind(WALKER& walker, std::uint32_t last);

    FRAME kept[capacity];  // outermost first
    // Of a walk that goes on: innermost first. Of a walk elsewhere: all frames, outermost first.
    FRAME changed[capacity];
    FRAME* found = kept;
    std::uint32_t kept_count = 0;
    std::uint32_t changed_count = 0;
    std::uint32_t found_count = 0;
    std::uint32_t unchanged_count = 0;
    std::uint64_t generation = 0;  // of the rules that the kept frames were made by
    bool kept_is_cut = false;
    bool found_is_cut = false;
};
