#include "tools/memrun/agent/reports.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ktl_mem/debug_patterns.h"
#include "ktl_mem/out_of_memory.h"
#include "ktl_mem/reports.h"
#include "ktl_mem/statistics.h"
#include "tools/memrun/agent/children.h"
#include "tools/memrun/agent/control_page.h"
#include "tools/memrun/agent/launcher_link.h"
#include "tools/memrun/agent/note.h"

namespace memrun::agent {

namespace {

// Makes `path` the current directory of this thread for a scope. Where the system refuses a thread a
// directory of its own, it is the whole process's for that time.
class WorkingFolder {
  public:
    explicit WorkingFolder(const char* path) : before_(open(".", O_PATH | O_CLOEXEC)) {
        unshare(CLONE_FS);
        entered_ = chdir(path) == 0;
    }
    ~WorkingFolder() {
        if (entered_ && before_ >= 0 && fchdir(before_) != 0) errno = 0;
        if (before_ >= 0) close(before_);
    }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;

    bool entered() const { return entered_; }

  private:
    int before_;
    bool entered_ = false;
};

constexpr const char* log_name = "mem_allocations.log";

}  // namespace

// The log's file name is fixed, and opening it empties it. So it is opened in a folder that no other process
// knows, and moved to where the user looks for it.
void start_log(const Orders& orders) {
    char folder[PATH_MAX + 32];
    std::snprintf(folder, sizeof folder, "%s/.log.%d", orders.dir, static_cast<int>(orders.owner));
    if (mkdir(folder, 0777) != 0) return;
    {
        const WorkingFolder inside(folder);
        if (!inside.entered()) return;
        mem_set_print_allocations_callback_enabled(true);
        char place[2 * NAME_MAX];
        std::snprintf(place, sizeof place, "../mem_allocations.%s.log", orders.word);
        rename(log_name, place);
    }
    rmdir(folder);
}

void write_reports(const Orders& orders, const char* how) {
    const MEM_STATS stats = mem_get_stats();
    const bool is_told =
        append_note(orders, "stats %lld %lld %lld %lld\n", static_cast<long long>(stats.current.bytes),
                    static_cast<long long>(stats.current.blocks), static_cast<long long>(stats.peak.bytes),
                    static_cast<long long>(stats.peak.blocks));
    // The launcher may be gone, and its folder with it; the reports are there all the same.
    if (!is_told && errno != ENOENT) return;
    note_children(orders);
    if (mem_is_out_of_memory()) append_note(orders, "failed 0\n");
    const WorkingFolder folder(orders.dir);
    if (!folder.entered()) return;
    resume_for_reports();
    mem_shutdown_tbb_tracking();
    note_silence(orders);
    if (append_note(orders, "ended %s\n", how)) tell_reports();
}

}  // namespace memrun::agent
