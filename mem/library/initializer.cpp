#include "ktl_mem/initializer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ktl_mem/services.h"
#include "mem/base/allocator_slots.h"
#include "mem/base/counted_lock.h"
#include "mem/base/tracking_word.h"
#include "mem/debug/pgo_registry.h"
#include "mem/frame/reserves.h"
#include "mem/library/allocator_report.h"
#include "mem/library/thread_wrapper.h"
#include "mem/report/shutdown.h"
#include "mem/tracker/start.h"

constinit std::atomic<std::uint64_t> MEM_INITIALIZER::s_init_counter{0};

namespace {

const char* printable(const char* name) {
    return name != nullptr ? name : "(null)";
}

void read_settings_of_the_start() {
    static const MEM_ALLOCATOR_REPORT report;
    mem_debug_msg_at_start = mem_cfg_is_on("debug_msg", false);
}

void run_locked_part_once() {
    static bool done = false;
    mem_lock.lock();
    if (!done) {
        done = true;
        read_settings_of_the_start();
    }
    mem_lock.unlock();
}

// The first module of the process brings the library up. Everything that a later step needs stands before it.
void start_library() {
    mem_bind_allocator_slots();
    mem_create_lock();
    mem_chain_thread_wrapper();
    run_locked_part_once();
    mem_allocate_reserve_buffers();
    mem_tbb_tracker_start(mem_get_tracking_granularity_from_env());
}

// With mem_lock held, which goes away here.
void stop_library() {
    mem_cleanup_tbb_tracking();
    mem_free_reserve_buffers();
    if (mem_lock.is_created()) mem_lock.release_and_delete();
}

}  // namespace

MEM_INITIALIZER::MEM_INITIALIZER(const char* module_name) : name(module_name) {
    if (s_init_counter.fetch_add(1) == 0) start_library();
    static const char* const print_lib_load = std::getenv("MEM_PRINT_LIB_LOAD");
    if (print_lib_load != nullptr) std::printf("Loading: %s\n", printable(name));
}

MEM_INITIALIZER::~MEM_INITIALIZER() {
    static const char* const print_lib_load = std::getenv("MEM_PRINT_LIB_LOAD");
    mem_lock.lock();
    if (print_lib_load != nullptr) std::printf("Unloading: %s\n", printable(name));
    // The module that serves messages goes away: the tracker must not call it any more.
    if (name != nullptr && std::strncmp(name, "MSG", 3) == 0) mem_tbb_no_msg_debug = true;
    if (s_init_counter.fetch_sub(1) == 1) stop_library();
    mem_lock.unlock();
}

MEM_INITIALIZER& MEM_INITIALIZER::operator=(const MEM_INITIALIZER& other) = default;
