// The debugging aids under threads.
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>
#include <string>

#include "ktl_mem/mem.h"
#include "tests/bins/on_threads.h"
#include "tests/process/behaviour.h"
#include "tests/process/call_sites.h"

namespace {

// Blocks of threads keep what the threads wrote, whatever is switched meanwhile.
const BEHAVIOUR switch_under_threads("switch", [](char**) {
    std::atomic<int> spoiled{0};
    {
        const Meanwhile threads(4, [&spoiled] {
            thread_local std::size_t size = 1;
            size = size * 7 % 5003;
            const auto content = static_cast<char>(size % 100);
            const std::string block(size, content);
            if (kept(&block)->find_first_not_of(content) != std::string::npos) ++spoiled;
        });
        for (int i = 0; i < 3000; ++i) {
            mem_set_alloc_pattern(i);
            mem_set_free_pattern(i);
            mem_set_print_allocations_callback_enabled(true);
            mem_disable_alloc_patterns();
            mem_set_print_allocations_callback_enabled(false);
        }
    }
    std::cout << "spoiled " << spoiled << '\n';
});

const BEHAVIOUR log_four_threads("log", [](char**) {
    mem_enable_tracking(MEM_TRACKING_ALLOC_DEALLOC);
    mem_set_print_allocations_callback_enabled(true);
    const std::int64_t before = mem_get_stats().current.blocks;
    on_threads(4, [](int) {
        for (int i = 0; i < 20'000; ++i) put_a_block();
    });
    const pid_t child = fork();
    if (child == 0) std::free(kept(std::malloc(54321))), _exit(0);
    waitpid(child, nullptr, 0);
    const std::int64_t after = mem_get_stats().current.blocks;
    mem_set_print_allocations_callback_enabled(false);
    std::cout << "blocks " << after - before << '\n';
});

}  // namespace
