// The sources of a frame's text. A symbolizer is asked once for each program counter that is new, on the
// allocating thread, inside an event, outside of the gate and with no lock of the tracker held; it takes
// mem_tbb_symbolizer_lock by itself, never waits for the loader and may allocate. The names of code may come
// from another process (code_names.h).
#pragma once

#include <cstdint>
#include <vector>

#include "ktl_mem/records.h"
#include "mem/base/spin_lock.h"

class MEM_SYMBOLIZER {
  public:
    virtual ~MEM_SYMBOLIZER() = default;
    // The word that chooses this symbolizer.
    virtual const char* get_name() const = 0;

    // These fill fields of a zeroed frame for a program counter as a stack walk captured it, and set its pc.
    // A field for which nothing is known stays as it was. Texts are cut to their field. Always true here.
    virtual bool get_module_name(std::uint64_t pc, MEM_STACK_FRAME& frame) = 0;
    // File, line and function; further_frames gets the callers that the frame was inlined into, from the
    // inside outwards, and loses what it held.
    virtual bool get_stack_frames(std::uint64_t pc, MEM_STACK_FRAME& frame,
                                  std::vector<MEM_STACK_FRAME>& further_frames);
    virtual bool get_stack_frame(std::uint64_t pc, MEM_STACK_FRAME& frame) = 0;
};

// Over the native system's symbol functions. Knows no inlined calls.
class MEM_SYMBOLIZER_WINDOWS : public MEM_SYMBOLIZER {
  public:
    static MEM_SYMBOLIZER_WINDOWS* get_instance();  // lives until the process ends

    const char* get_name() const override { return "windows"; }
    bool get_module_name(std::uint64_t pc, MEM_STACK_FRAME& frame) override;
    bool get_stack_frame(std::uint64_t pc, MEM_STACK_FRAME& frame) override;
};

// Over the debug information of the loaded files, inlined calls included. The default.
class MEM_SYMBOLIZER_DWARF : public MEM_SYMBOLIZER {
  public:
    static MEM_SYMBOLIZER_DWARF* get_instance();  // lives until the process ends

    const char* get_name() const override { return "dwarf"; }
    bool get_module_name(std::uint64_t pc, MEM_STACK_FRAME& frame) override;
    // Further frames carry the module of frame, so get_module_name comes first.
    bool get_stack_frames(std::uint64_t pc, MEM_STACK_FRAME& frame,
                          std::vector<MEM_STACK_FRAME>& further_frames) override;
    bool get_stack_frame(std::uint64_t pc, MEM_STACK_FRAME& frame) override;
};

// The symbolizer in use, not owned; null before the tracker's start.
extern MEM_SYMBOLIZER* mem_tbb_symbolizer;

// Lets one thread at a time into the symbol functions.
extern MEM_SPIN_LOCK mem_tbb_symbolizer_lock;

// Sets mem_tbb_symbolizer by the key "mem_symbolizer": "dwarf" or "windows", exactly; empty and "default"
// mean "dwarf", and so does any other word, with a debug line. `announce` adds the line that names the choice
// and lists the loaded modules while no event waits for it. Part of the tracker's start: not in a hook.
void mem_choose_symbolizer(bool announce);
