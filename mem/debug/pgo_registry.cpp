#include "mem/debug/pgo_registry.h"

#include <cstdint>
#include <iostream>
#include <set>
#include <string>
#include <utility>

#include "ktl_mem/pgo.h"

MEM_PLAIN_WORD<bool> mem_debug_msg_at_start;

namespace {

// First the module, second the scenario.
using REGISTRY = std::set<std::pair<std::string, std::string>>;

MEM_PLAIN_WORD<std::uint8_t> mem_pgo_registry_used;

// Never destroyed: modules may register, and are listed, while static objects go.
REGISTRY& mem_pgo_registry() {
    static REGISTRY* const registry = new REGISTRY;
    mem_pgo_registry_used = 1;
    return *registry;
}

}  // namespace

void mem_register_dll_for_pgo(const char* module, const char* scenario) {
    mem_pgo_registry().emplace(module, scenario);
}

void mem_list_pgo_modules() {
    if (!mem_debug_msg_at_start || mem_pgo_registry_used == 0) return;
    for (const auto& [module, scenario] : mem_pgo_registry())
        std::cout << "Debug: PGO: The code module " << module
                  << " was last compiled using PGO for:" << scenario << std::endl;
}
