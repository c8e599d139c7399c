// Walks the stack of the calling thread by the call frame information of the loaded modules, with the
// result for each program counter cached as one 64-bit rule. Nothing here allocates, takes a lock, waits
// for the loader or changes errno, so a walk may be made in an allocator hook, in a signal handler and in a
// forked child. The only system call is a probe of a page, on stacks that are not the thread's own.
//
// A walk lives on the stack that it walks and must end before the frame it started from returns.
#pragma once

#include <cstdint>

// The state of a frame: pc is the return address into it, sp and bp are the registers as they are when the
// call has returned to pc.
struct STACK_WALK_START {
    std::uint64_t pc;
    std::uint64_t sp;
    std::uint64_t bp;

    bool operator==(const STACK_WALK_START&) const = default;
};

// The caller of the function whose __builtin_frame_address(0) is given. Asking for that address makes the
// compiler keep a frame pointer in that function, so this costs three loads and no table. The function must
// not have over-aligned locals, which would move its frame away from its return address.
inline STACK_WALK_START stack_walk_start(const void* frame_address) {
    const auto* words = static_cast<const std::uint64_t*>(frame_address);
    return {words[1], reinterpret_cast<std::uint64_t>(words + 2), words[0]};
}

class STACK_WALK {
  public:
    // With fresh every rule is worked out anew from the call frame information and put into the table, but
    // for those of modules that are never unloaded. Ask for that when a walk has met a program counter that
    // was never seen before: it may be new, or a rule may have outlived the module that it was made for.
    // Finding such a rule empties the table.
    explicit STACK_WALK(const STACK_WALK_START& start, bool fresh = false);
    // Goes on from a frame that an earlier walk of the same stack has come to, with its answers to is_exact
    // and has_seen_loader.
    STACK_WALK(const STACK_WALK_START& frame, bool exact, bool loader_seen);

    // Stores the next return addresses, innermost first, at most max_frames of them, and returns how many.
    // The first one ever stored is that of the start. Fewer than max_frames means that the stack has ended;
    // from then on every call stores none. The pc of a frame that a signal interrupted is the address of
    // the instruction that goes on there, not a return address.
    std::int32_t next(std::uint64_t* pcs, std::int32_t max_frames);

    // Whether frames that were already given turned out to be wrong, because a rule had outlived its module.
    // The stack has then ended early; a new walk is right.
    bool went_astray() const { return astray_; }

    // Of the frame that was given last: its state, whether a signal interrupted it, and whether the walk has
    // found the loader at work.
    const STACK_WALK_START& frame() const { return frame_; }
    bool is_exact() const { return exact_; }
    bool has_seen_loader() const { return loader_seen_; }

  private:
    void find_readable();
    bool find_own_stack();
    bool leads_to_known_stack() const;
    bool step_slowly();
    bool apply(std::uint64_t rule);
    bool follow_guess();
    bool follow_all_registers();
    bool enter(std::uint64_t cfa, std::uint64_t bp);
    bool leave_signal_frame();
    bool retry_without_table(std::uint64_t rule);
    std::uint64_t current_rule();
    bool load(std::uint64_t address, std::uint64_t* value);
    bool probe(std::uint64_t address);

    STACK_WALK_START frame_;
    STACK_WALK_START start_;
    std::uint64_t readable_begin_;  // the part of the stack that is known to be mapped
    std::uint64_t readable_end_;
    std::int32_t frames_given_ = 0;
    std::int32_t signal_frames_ = 0;
    bool fresh_;
    bool on_own_stack_;
    bool exact_ = false;  // frame_.pc is where a signal interrupted the frame
    bool loader_seen_ = false;
    bool astray_ = false;
    bool is_scout_ = false;  // probes every page, and changes nothing
};
