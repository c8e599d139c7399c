// What the library says of the memory of processes.
#include <unistd.h>

#include <iostream>

#include "ktl_mem/process_memory.h"
#include "tests/process/behaviour.h"

namespace {

const BEHAVIOUR own_figures("figures", [](char**) {
    const std::uint64_t mapped = mem_info_get_process_current_virtual_used();
    std::cout << "mapped " << mapped << ", in use " << mem_info_get_system_current_physical_in_use() << '\n';
});

// Asks as another user where it can.
const BEHAVIOUR peak_of_another("peak_of", [](char** arguments) {
    static_cast<void>(!setuid(65534));
    std::cout << mem_info_get_process_peak_virtual_used(std::strtoull(arguments[0], nullptr, 10)) << '\n';
});

}  // namespace
