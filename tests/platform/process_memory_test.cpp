#include "platform/process_memory.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "platform/last_error.h"

namespace {

constexpr std::uint64_t mebibyte = 1 << 20;  // the kernel counts resident pages in batches

PROCESS_MEMORY_COUNTERS figures_of(HANDLE process) {
    PROCESS_MEMORY_COUNTERS counters;
    EXPECT_TRUE(K32GetProcessMemoryInfo(process, &counters, sizeof counters));
    return counters;
}

// The kernel's other file counts pages in groups. A reservation without access and a mapped file are no
// private memory that can be written.
TEST(ProcessMemory, AgreesWithAnotherReadingAndFollowsMemoryThatComesAndGoes) {
    constexpr std::uint64_t size = 64 * mebibyte;
    const PROCESS_MEMORY_COUNTERS before = figures_of(GetCurrentProcess());
    void* const reserved = mmap(nullptr, 16 * size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    void* const block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    madvise(block, size, MADV_NOHUGEPAGE);
    for (std::uint64_t at = 0; at < size; at += 4096) static_cast<volatile char*>(block)[at] = 1;
    std::uint64_t skipped = 0, resident_pages = 0, private_pages = 0;
    std::ifstream("/proc/self/statm") >> skipped >> resident_pages >> skipped >> skipped >> skipped >>
        private_pages;
    const PROCESS_MEMORY_COUNTERS held = figures_of(static_cast<HANDLE>(getpid()));
    const std::uint64_t alone = resident_memory();
    munmap(block, size);
    munmap(reserved, 16 * size);
    const PROCESS_MEMORY_COUNTERS after = figures_of(GetCurrentProcess());
    EXPECT_LT(held.PagefileUsage - private_pages * 4096 + mebibyte, 2 * mebibyte);
    EXPECT_LT(held.WorkingSetSize - resident_pages * 4096 + mebibyte, 2 * mebibyte);
    EXPECT_LT(held.WorkingSetSize - alone + mebibyte, 2 * mebibyte);
    EXPECT_GE(held.PagefileUsage, before.PagefileUsage + size);
    EXPECT_LT(held.PagefileUsage, before.PagefileUsage + size + mebibyte);
    EXPECT_GE(held.WorkingSetSize, before.WorkingSetSize + size - mebibyte);
    EXPECT_GE(held.PageFaultCount, before.PageFaultCount + size / 4096);
    EXPECT_GE(after.PeakPagefileUsage, after.PagefileUsage + size);
    EXPECT_GE(after.PeakWorkingSetSize, held.WorkingSetSize - mebibyte);
}

TEST(ProcessMemory, TellsWhyThereAreNoFigures) {
    const pid_t ended = fork();
    if (ended == 0) _exit(0);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(ended), &info, WEXITED | WNOWAIT);
    PROCESS_MEMORY_COUNTERS counters;
    for (const HANDLE process :
         {HANDLE{0}, HANDLE{4194305}, static_cast<HANDLE>(ended)}) {  // no id is so high
        EXPECT_FALSE(K32GetProcessMemoryInfo(process, &counters, sizeof counters));
        EXPECT_EQ(GetLastError(), ESRCH);
    }
    waitpid(ended, nullptr, 0);
    MEMORYSTATUSEX status;
    EXPECT_FALSE(GlobalMemoryStatusEx(&status));
    EXPECT_EQ(GetLastError(), EINVAL);
    status.dwLength = sizeof status;
    EXPECT_TRUE(GlobalMemoryStatusEx(&status));
    EXPECT_EQ(status.ullTotalPhys, static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) * 4096);
    EXPECT_GT(status.ullTotalPhys, status.ullAvailPhys);
}

}  // namespace
