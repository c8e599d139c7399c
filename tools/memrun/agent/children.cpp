#include "tools/memrun/agent/children.h"

#include <filesystem>
#include <fstream>

#include "ktl_mem/tracking.h"
#include "tools/memrun/agent/note.h"

namespace fs = std::filesystem;

namespace memrun::agent {

// A child belongs to the thread that forked it.
void note_children(const Orders& orders) {
    const int was_blocked = mem_block_thread_tracking();
    std::error_code error;
    for (const fs::directory_entry& thread : fs::directory_iterator("/proc/self/task", error)) {
        std::ifstream children(thread.path() / "children");
        for (int child = 0; children >> child;) append_note(orders, "child %d\n", child);
    }
    if (was_blocked == 0) mem_unblock_thread_tracking();
}

}  // namespace memrun::agent
