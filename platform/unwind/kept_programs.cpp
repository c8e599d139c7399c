#include "platform/unwind/kept_programs.h"

#include <algorithm>
#include <atomic>
#include <iterator>

namespace unwind {

namespace {

constinit std::atomic<bool> is_taken{false};

// Guarded by is_taken. The one that was used last comes first in the order.
constexpr int MOST_PROGRAMS = 4;
constinit FRAME_PROGRAM programs[MOST_PROGRAMS];
constinit FRAME_PROGRAM* order[MOST_PROGRAMS] = {&programs[0], &programs[1], &programs[2], &programs[3]};

}  // namespace

KEPT_PROGRAMS::SCOPE::SCOPE() : is_open_(!is_taken.exchange(true, std::memory_order_acquire)) {}

KEPT_PROGRAMS::SCOPE::~SCOPE() {
    if (is_open_) is_taken.store(false, std::memory_order_release);
}

FRAME_PROGRAM* KEPT_PROGRAMS::SCOPE::program_for(std::uint64_t address) const {
    const auto goes_on_to = [=](const FRAME_PROGRAM* program) { return program->lies_ahead(address); };
    FRAME_PROGRAM** const known = std::find_if(std::begin(order), std::end(order), goes_on_to);
    FRAME_PROGRAM** const at = known != std::end(order) ? known : std::end(order) - 1;
    if (known == std::end(order)) {
        CALL_FRAME frame;
        if (!find_call_frame(address, &frame)) return nullptr;
        (*at)->start(frame);
    }
    std::rotate(std::begin(order), at, at + 1);
    return order[0];
}

}  // namespace unwind
