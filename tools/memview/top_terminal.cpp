#include <curses.h>
#include <term.h>  // its macros have names that others use
#include <unistd.h>

#include "tools/memview/top_screen.h"

namespace memview {

bool TopScreen::is_possible() {
    int state = 0;
    return setupterm(nullptr, STDOUT_FILENO, &state) == OK;
}

}  // namespace memview
