// Names from another process, asked for over a channel.
#pragma once

#include <cstddef>
#include <vector>

#include "ktl_mem/export.h"
#include "platform/symbols/name_channel.h"
#include "platform/symbols/name_messages.h"
#include "platform/symbols/name_table.h"

namespace symbols {

// From here on ask() uses the channel, and what others were answered is in the table, which may be null. All
// must stay mapped. A forked child asks nobody until it has a channel of its own. Exported for the launcher's
// agent, which comes with the library, and for nobody else.
KTL_MEM_API void use_name_channel(NAME_CHANNEL* channel, NAME_BELL* bell, const NAME_TABLE* table);

// Whether somebody can be asked, as far as this process knows.
bool can_ask();
// Whether this process could once, and gave up. Not in a forked child.
bool is_left_alone();

// Null for none.
const NAME_TABLE* known_names();

// Asks for all addresses of all questions; answers are in their order, one for each address. False when
// nobody answers: after a second of silence nobody is asked again. Only where can_ask(). Any number of
// threads may ask at once. Waits for the other process, so no lock may be held that others need meanwhile.
bool ask(const std::vector<NAME_QUESTION>& questions, std::vector<std::vector<FRAME>>& answers);

}  // namespace symbols
