// As in a tracked process, an allocation of these tests can be an event: it asks for the bins on its thread.
#pragma once

extern thread_local bool allocations_are_events;
extern thread_local int allocations;  // of this thread so far, but for those while it was blocked
