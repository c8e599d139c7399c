// Names from another process, asked for over a channel.
#pragma once

#include <cstddef>
#include <vector>

#include "ktl_mem/export.h"
#include "platform/symbols/name_channel.h"
#include "platform/symbols/name_messages.h"

namespace symbols {

// From here on ask() uses the channel. Both must stay mapped. Exported for the launcher's agent, which comes
// with the library, and for nobody else.
KTL_MEM_API void use_name_channel(NAME_CHANNEL* channel, NAME_BELL* bell);

// Whether somebody can be asked, as far as this process knows.
bool can_ask();

// Asks for all addresses of all questions; answers are in their order, one for each address. False when
// nobody answers: after a second of silence nobody is asked again. Only where can_ask(). Any number of
// threads may ask at once. Waits for the other process, so no lock may be held that others need meanwhile.
bool ask(const std::vector<NAME_QUESTION>& questions, std::vector<std::vector<FRAME>>& answers);

}  // namespace symbols
