// MEM_PROFILE_BIN_STACK: the names of bins, or of tags, and which of them are open. Ids are dense, in order
// of first use, and never reused.
//
// push_name and pop are the business of one thread at a time. The current id, and the name of any id that a
// caller has got hold of, can be read at any moment by any thread, without a lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

#include "mem/base/steady_array.h"

class MEM_PROFILE_BIN_STACK {
  public:
    MEM_PROFILE_BIN_STACK();

    // Acquire: whoever has the id can ask for its name. Safe in an allocator hook.
    std::uint32_t get_curr_id() const { return curr_id.load(std::memory_order_acquire); }
    const std::string& get_curr_name() const { return m_names[get_curr_id()]; }

    // The name lives as long as the stack. Throws std::out_of_range for an id that was never given.
    const std::string& name_of(std::uint32_t id) const;

    void push_name(const std::string& name);
    // Popping the bottom, or a name that is not on top, is an internal error.
    void pop();
    void pop(const std::string& name);

  private:
    std::uint32_t id_of(const std::string& name);

    std::deque<std::uint32_t> m_pb_id_stack;
    std::unordered_map<std::string_view, std::uint32_t> m_ids;  // the keys are the strings of m_names
    MEM_STEADY_ARRAY<std::string> m_names;
    std::atomic<std::uint32_t> curr_id{0};  // the top of m_pb_id_stack, for the event path
};
