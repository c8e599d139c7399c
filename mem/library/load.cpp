// What runs when the library is loaded, in its order, and what is registered for its end. Objects of this one
// file are constructed top to bottom and destroyed bottom to top, so the order below is the order at load,
// and the reverse is the order at exit; nothing depends on the order of static objects in different files.
#include <optional>

#include "ktl_mem/initializer.h"
#include "mem/base/pool_turn.h"
#include "mem/base/stats.h"
#include "mem/base/tracking_word.h"
#include "mem/bins/label_stack.h"
#include "mem/debug/pgo_registry.h"
#include "mem/frame/fatal_exit.h"
#include "mem/frame/process_end.h"
#include "mem/report/shutdown.h"
#include "mem/tracker/rvm_observer.h"
#include "platform/process_life.h"

namespace {

// Runs the first action now and the second at the library's exit, each as an entry point of the library.
class AT_LOAD_AND_EXIT {
  public:
    AT_LOAD_AND_EXIT(void (*at_load)(), void (*at_exit)()) : exit_action(at_exit) {
        if (at_load != nullptr) mem_run_entry_point(at_load);
    }
    ~AT_LOAD_AND_EXIT() {
        if (exit_action != nullptr) mem_run_entry_point(exit_action);
    }
    AT_LOAD_AND_EXIT(const AT_LOAD_AND_EXIT&) = delete;
    AT_LOAD_AND_EXIT& operator=(const AT_LOAD_AND_EXIT&) = delete;

  private:
    void (*const exit_action)();
};

MEM_RVM_OBSERVER mapping_observer;
std::optional<MEM_INITIALIZER> own_module;

// Claimed by whoever ends the process, before the library's part of the exit and again after it.
const AT_LOAD_AND_EXIT last_exit_action(nullptr, mem_claim_exit);
const AT_LOAD_AND_EXIT translator(mem_install_load_translator, nullptr);
const AT_LOAD_AND_EXIT own_module_life([] { own_module.emplace("MEM"); }, [] { own_module.reset(); });
const AT_LOAD_AND_EXIT pgo_listing(nullptr, mem_list_pgo_modules);
const AT_LOAD_AND_EXIT labels(nullptr, mem_retire_label_stack);
const AT_LOAD_AND_EXIT observer([] { mapping_observer.enlist(); }, [] { mapping_observer.retire(); });
const AT_LOAD_AND_EXIT thread_handlers(mem_install_thread_handlers, nullptr);
void guard_forks() {
    clear_in_forked_child(&mem_tracking_word, sizeof mem_tracking_word);
    mem_hold_pool_turn_at_forks();
    run_in_forked_child(mem_abandon_tracking_in_child);
    run_in_forked_child(mem_stats_renew_locks);
}
const AT_LOAD_AND_EXIT fork_guard(guard_forks, nullptr);
const AT_LOAD_AND_EXIT first_exit_action(nullptr, mem_claim_exit);

}  // namespace
