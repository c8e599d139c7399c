#include <gtest/gtest.h>

#include "ktl_mem/memory_manager.h"
#include "ktl_mem/process_memory.h"
#include "ktl_mem/services.h"

namespace {

std::string debug_lines;

bool record_debug_line(const char* module, const char* format, va_list args) {
    char line[200];
    std::vsnprintf(line, sizeof line, format, args);
    debug_lines += std::string(module) + ": " + line + "\n";
    return true;
}

TEST(ProcessInfo, PostsOneDebugLineForAProcessThatIsNotThere) {
    mem_set_msg_local_vdebug_callback(record_debug_line);
    EXPECT_EQ(mem_info_get_process_current_virtual_used(0), 0u);
    EXPECT_GT(mem_info_get_process_current_virtual_used(), 0u);
    MEM::MALLOC_EXTENSION::print_message("half, 50%%");
    EXPECT_EQ(debug_lines, "MEM: No such process\nMEM: half, 50%\n");
    mem_set_msg_local_vdebug_callback(nullptr);
}

TEST(ProcessInfo, SystemPeaksNeverFallAndCoverEverySample) {
    for (std::uint64_t i = 0, peak = 1; i < 50; ++i) {
        const std::uint64_t sample = mem_info_get_system_current_physical_in_use();
        const std::uint64_t next = mem_info_get_system_peak_physical_in_use();
        EXPECT_GE(next, std::max(peak, sample));
        peak = next;
    }
}

}  // namespace
