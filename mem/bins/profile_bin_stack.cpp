#include "mem/bins/profile_bin_stack.h"

#include <stdexcept>

#include "mem/base/internal_error.h"

MEM_PROFILE_BIN_STACK::MEM_PROFILE_BIN_STACK() : m_ids(8) {
    push_name("Root");
}

const std::string& MEM_PROFILE_BIN_STACK::name_of(std::uint32_t id) const {
    if (id >= m_names.size()) throw std::out_of_range("MEM_PROFILE_BIN_STACK::name_of");
    return m_names[id];
}

void MEM_PROFILE_BIN_STACK::push_name(const std::string& name) {
    const std::uint32_t id = id_of(name);
    m_pb_id_stack.push_back(id);
    curr_id.store(id, std::memory_order_release);
}

std::uint32_t MEM_PROFILE_BIN_STACK::id_of(const std::string& name) {
    if (const auto found = m_ids.find(name); found != m_ids.end()) return found->second;
    const std::uint32_t id = m_names.size();
    m_names.reserve(id + 1);
    m_names[id] = name;
    m_ids.emplace(m_names[id], id);
    m_names.set_size(id + 1);
    return id;
}

void MEM_PROFILE_BIN_STACK::pop() {
    m_pb_id_stack.pop_back();
    mem_require(!m_pb_id_stack.empty(), mem_conditions::bin_is_open);
    curr_id.store(m_pb_id_stack.back(), std::memory_order_release);
}

void MEM_PROFILE_BIN_STACK::pop(const std::string& name) {
    mem_require(name == get_curr_name(), mem_conditions::innermost_bin_is_closed);
    pop();
}
