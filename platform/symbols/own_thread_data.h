// Thread-local data of the libraries that the look-ups use, kept where the loader has no hand in it.
//
// A library reaches such data through a function of the loader. That function waits for a lock which the
// loader holds while it allocates, and an allocation waits for the look-ups; and it may itself be what
// allocates, with a table of the thread half moved. So no look-up may call it.
#pragma once

#include <array>

namespace symbols {

// Gives both libraries a function of our own in its place, from now on and for every caller in the process.
// Their data starts anew; all they keep there is their last error and a number for the thread. Leaves a
// library as it is where it is built in a way that is not known here. `codes`: an address in each of them.
void take_over_thread_data(const std::array<const void*, 2>& codes);

}  // namespace symbols
