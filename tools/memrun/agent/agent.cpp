// The preloaded agent of ktl_memrun: a host of the library like any other, which gives a process that knows
// nothing of the library its folder, its file names, and reports also when a signal ends it.
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>

#include "ktl_mem/initializer.h"
#include "ktl_mem/services.h"
#include "ktl_mem/tracking.h"
#include "tools/memrun/agent/allocator_hooks.h"
#include "tools/memrun/agent/deep_binding.h"
#include "tools/memrun/agent/end_signals.h"
#include "tools/memrun/agent/failed_allocations.h"
#include "tools/memrun/agent/forked_child.h"
#include "tools/memrun/agent/guarded_code.h"
#include "tools/memrun/agent/inheritance.h"
#include "tools/memrun/agent/launcher_link.h"
#include "tools/memrun/agent/mappings.h"
#include "tools/memrun/agent/note.h"
#include "tools/memrun/agent/orders.h"
#include "tools/memrun/agent/process_end.h"
#include "tools/memrun/agent/reports.h"

namespace memrun::agent {

namespace {

constinit Orders orders;

// One module of the host that never goes away: the reports are the agent's to write, in the folder that it
// chose, so the library must find no last module at the exit and end itself somewhere else.
void hold_library() {
    alignas(MEM_INITIALIZER) static char place[sizeof(MEM_INITIALIZER)];
    new (place) MEM_INITIALIZER("memrun");
}

// Standard output belongs to the program, whatever it sets "debug_msg" to.
bool swallow(const char*, const char*, va_list) {
    return true;
}

bool is_in_tcmalloc(void* function) {
    dl_find_object found;
    return _dl_find_object(function, &found) == 0 &&
           std::strstr(found.dlfo_link_map->l_name, "libtcmalloc_minimal") != nullptr;
}

// A program that takes malloc's address without being position-independent has a stand-in for it of its own,
// which leads to whoever serves it; only a definition counts.
void note_foreign_allocator() {
    Dl_info info;
    ElfW(Sym)* symbol = nullptr;
    void* const serving = dlsym(RTLD_DEFAULT, "malloc");
    if (is_in_tcmalloc(serving)) return;
    if (dladdr1(serving, &info, reinterpret_cast<void**>(&symbol), RTLD_DL_SYMENT) == 0) return;
    if (symbol != nullptr && symbol->st_shndx != SHN_UNDEF)
        append_note(orders, "allocator %s\n", info.dli_fname);
}

void serve_library() {
    mem_set_msg_local_vdebug_callback(swallow);
    mem_set_msg_local_vinfo_callback(swallow);
    mem_set_gen_get_module_filename_callback([] { return std::string(orders.program); });
    mem_set_tbb_exe_string(orders.word);
}

bool is_tracked() {
    return orders.given && !orders.is_starter && getpid() == orders.owner;
}

void end_of_process() {
    if (!is_tracked() || !claim_end()) return;
    write_reports(orders, "exit");
    finish_end();
}

void start() {
    orders = read_orders();
    if (!orders.given) return;
    hold_library();
    if (orders.is_starter) return;
    if (orders.has_heir) keep_inheritance(orders);
    restore_environment(orders.follow);
    begin_note(orders);
    join_launcher(orders);
    note_foreign_allocator();
    serve_library();
    if (orders.log) start_log(orders);
    if (orders.forks) follow_forks(orders);
    watch_failed_allocations(orders);
    note_deep_binding(orders);
    watch_end_signals(orders);
    attach_allocator_hooks();
    if (orders.mappings) announce_mappings();
    std::at_quick_exit(end_of_process);
}

// The agent's end is an exit action that was registered after the library's and so runs before it. Of threads
// that run exit at once two can come this far (await_turn_to_exit), and take one action each: behind the
// agent's lies one that has the other thread wait.
struct EndAwaited {
    EndAwaited() = default;
    ~EndAwaited() {
        if (is_tracked()) wait_for_end();
    }
    EndAwaited(const EndAwaited&) = delete;
    EndAwaited& operator=(const EndAwaited&) = delete;
};

struct Agent {
    Agent() {
        const int saved_errno = errno;
        const int was_blocked = mem_block_thread_tracking();
        start();
        if (was_blocked == 0) mem_unblock_thread_tracking();
        errno = saved_errno;
    }
    ~Agent() { end_of_process(); }
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;
};

const EndAwaited end_awaited;
const Agent agent;

}  // namespace

void on_exit_call() {
    if (is_tracked()) await_turn_to_exit();
}

void on_fast_exit() {
    if (is_tracked() && !is_in_guarded_code()) end_of_process();
}

}  // namespace memrun::agent
