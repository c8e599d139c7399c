#include "platform/startup_modules.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <atomic>
#include <cstddef>

namespace {

// Of more modules the last ones are not known.
constexpr std::size_t most_modules = 128;

class MODULES {
  public:
    // Null until the list is made; a thread that comes meanwhile does without.
    const STARTUP_MODULE* find(std::uint64_t address) {
        if (state.load(std::memory_order_acquire) != STATE::made && !make()) return nullptr;
        const auto* above = std::upper_bound(
            modules, modules + count, address,
            [](std::uint64_t at, const STARTUP_MODULE& module) { return at < module.begin; });
        return above != modules && address < above[-1].end ? above - 1 : nullptr;
    }

  private:
    enum class STATE { empty, in_the_making, made };

    bool make() {
        STATE expected = STATE::empty;
        if (!state.compare_exchange_strong(expected, STATE::in_the_making, std::memory_order_relaxed))
            return false;
        collect();
        std::sort(modules, modules + count,
                  [](const STARTUP_MODULE& a, const STARTUP_MODULE& b) { return a.begin < b.begin; });
        state.store(STATE::made, std::memory_order_release);
        return true;
    }

    // What is loaded later comes behind all of these in the list, and the loader itself is one of these. So
    // what lies in front of it stays, and no other thread changes the links there. The few that may lie
    // behind it count as unknown.
    void collect() {
        for (const link_map* at = _r_debug.r_map; at != nullptr; at = at->l_next) {
            dl_find_object found;
            if (count < most_modules && _dl_find_object(at->l_ld, &found) == 0)
                modules[count++] = {reinterpret_cast<std::uint64_t>(found.dlfo_map_start),
                                    reinterpret_cast<std::uint64_t>(found.dlfo_map_end), found.dlfo_eh_frame};
            if (at->l_addr == _r_debug.r_ldbase) return;
        }
        count = 0;  // a list without the loader says nothing
    }

    std::atomic<STATE> state{STATE::empty};
    std::size_t count = 0;
    STARTUP_MODULE modules[most_modules] = {};
};

constinit MODULES startup_modules;

}  // namespace

const STARTUP_MODULE* startup_module_at(std::uint64_t address) {
    return startup_modules.find(address);
}
