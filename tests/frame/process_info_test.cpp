#include <gtest/gtest.h>

#include "ktl_mem/memory_manager.h"
#include "ktl_mem/process_memory.h"
#include "ktl_mem/services.h"
#include "tests/attribution/told_messages.h"

namespace {

TEST(ProcessInfo, PostsOneDebugLineForAProcessThatIsNotThere) {
    mem_set_msg_local_vdebug_callback(keep_message);
    EXPECT_EQ(mem_info_get_process_current_virtual_used(0), 0u);
    EXPECT_GT(mem_info_get_process_current_virtual_used(), 0u);
    MEM::MALLOC_EXTENSION::print_message("half, 50%%");
    EXPECT_EQ(messages, (std::vector<std::string>{"No such process", "half, 50%"}));
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
