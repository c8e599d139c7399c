// Forked children that go on being tracked, with reports, a region and a control page of their own.
#pragma once

#include "tools/memrun/agent/orders.h"

namespace memrun::agent {

// From now on each fork makes one, as far as the tracker can (mem/report/forks.h); `orders` must stay. Behind
// join_launcher, whose handlers of forks come first.
void follow_forks(Orders& orders);

// Before a child of a fork puts a program in its place that is not tracked, and when it could not. Its
// reports would tell of the time between the two calls alone.
void note_exec_of_child(bool is_begun);

}  // namespace memrun::agent
