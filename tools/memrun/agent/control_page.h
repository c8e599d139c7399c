// The launcher's wishes to a process that runs, and their fulfilment.
#pragma once

#include "tools/memrun/agent/orders.h"
#include "tools/memrun/control/page.h"

namespace memrun::agent {

// Lies in place, so that a look at it costs what a look at any word of the agent's costs; shared memory takes
// the place of its pages.
struct alignas(control::page_bytes) ControlPage : control::Page {};
extern ControlPage control_page;

// Has a page shared from now on, in a forked child another one; `orders` must stay. A descriptor of it for
// the launcher, or -1.
int share_control_page(const Orders& orders);

// Relaxed, since a hook that sees a wish late leaves it to the next one.
inline bool is_wished() {
    return control_page.wishes.load(std::memory_order_relaxed) != 0;
}

// Fulfils what is wished, as far as this thread can: not inside the tracker, and not in a forked child.
[[gnu::cold, gnu::noinline]] void fulfil_in_hook();

// The same for a thread that the launcher has interrupted.
void fulfil_in_signal();

// Around a fork: no wish is being fulfilled meanwhile. False when one takes too long. Nothing is held in the
// child.
bool hold_wishes();
void release_wishes();

// Says that this process has written its reports.
void tell_reports();

// Whether tracking was stopped by an order; it is put on again, so that reports know what was tracked.
void resume_for_reports();

}  // namespace memrun::agent
