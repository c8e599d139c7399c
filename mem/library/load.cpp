// What runs when the library is loaded, in its order, and what runs at its exit, in the reverse order.
// Nothing depends on the order of static objects in different files. At the exit all of it is one action of
// one thread: what threads that run exit at once would share among them, one of them would cut short.
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <optional>

#include "ktl_mem/initializer.h"
#include "mem/base/pool_turn.h"
#include "mem/base/stats.h"
#include "mem/base/tracking_word.h"
#include "mem/bins/label_stack.h"
#include "mem/debug/pgo_registry.h"
#include "mem/frame/fatal_exit.h"
#include "mem/frame/process_end.h"
#include "mem/report/forks.h"
#include "mem/tracker/rvm_observer.h"
#include "platform/process_life.h"

namespace {

MEM_RVM_OBSERVER mapping_observer;
std::optional<MEM_INITIALIZER> own_module;

void guard_forks() {
    mem_hold_pool_turn_at_forks();
    run_in_forked_child(mem_stats_renew_locks);
    mem_guard_forks();
}

// An action that ends the process, for want of memory, comes back here in the course of that exit: the next
// one is its turn then.
void end_library() {
    static constexpr void (*const actions[])() = {[] { mapping_observer.retire(); }, mem_retire_label_stack,
                                                  mem_list_pgo_modules, [] { own_module.reset(); }};
    static std::size_t done = 0;
    mem_claim_exit_action(end_library);
    while (done < std::size(actions)) mem_run_entry_point(actions[done++]);
}

// Ends the library at an exit action of its own.
struct END_OF_LIBRARY {
    END_OF_LIBRARY() = default;
    ~END_OF_LIBRARY() { end_library(); }
    END_OF_LIBRARY(const END_OF_LIBRARY&) = delete;
    END_OF_LIBRARY& operator=(const END_OF_LIBRARY&) = delete;
};

// Threads that exit at once take one action each. These are for those who come while the first one runs,
// until the one that waits has registered another: behind them lie the ends of the libraries that this one
// uses, and the end of the process. They fit into what the C library has room for without a block, which one
// thread would free under the hands of another.
constexpr int most_threads_that_wait = 6;
[[maybe_unused]] const bool others_wait = [] {
    for (int thread = 0; thread < most_threads_that_wait; ++thread) std::atexit(end_library);
    return true;
}();
[[maybe_unused]] const bool is_loaded = [] {
    for (void (*const action)() :
         {mem_install_load_translator, +[] { own_module.emplace("MEM"); }, +[] { mapping_observer.enlist(); },
          mem_install_thread_handlers, guard_forks})
        mem_run_entry_point(action);
    return true;
}();
const END_OF_LIBRARY first_exit_action;

}  // namespace
