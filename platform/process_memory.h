// What the kernel says about the memory of a process and of the machine, all in bytes unless the name says
// count. Each call is one reading of /proc into the caller's stack: nothing is allocated, no file stays
// open. Thread-safe, and safe in an allocator hook; a few system calls each.
#pragma once

#include <cstdint>

#include "platform/process.h"

struct PROCESS_MEMORY_COUNTERS {
    std::uint32_t cb = 0;                       // size of this record, set by the caller
    std::uint32_t PageFaultCount = 0;           // minor and major faults of all threads; wraps
    std::uint64_t PeakWorkingSetSize = 0;       // VmHWM: highest resident set of the process's life
    std::uint64_t WorkingSetSize = 0;           // VmRSS: resident set
    std::uint64_t QuotaPeakPagedPoolUsage = 0;  // no such figure here, like the three that follow
    std::uint64_t QuotaPagedPoolUsage = 0;
    std::uint64_t QuotaPeakNonPagedPoolUsage = 0;
    std::uint64_t QuotaNonPagedPoolUsage = 0;
    // VmData + VmStk: private memory that can be written. Reservations without access and mapped files are
    // none.
    std::uint64_t PagefileUsage = 0;
    // Of this process, the highest PagefileUsage that any call has given; of another one, the present.
    std::uint64_t PeakPagefileUsage = 0;
};
static_assert(sizeof(PROCESS_MEMORY_COUNTERS) == 72);

struct MEMORYSTATUSEX {
    std::uint32_t dwLength = 0;      // size of this record, set by the caller
    std::uint32_t dwMemoryLoad = 0;  // physical memory in use, per cent
    std::uint64_t ullTotalPhys = 0;
    std::uint64_t ullAvailPhys = 0;      // what can be had without swapping
    std::uint64_t ullTotalPageFile = 0;  // swap space
    std::uint64_t ullAvailPageFile = 0;
    std::uint64_t ullTotalVirtual = 0;  // no such figure here, like the two that follow
    std::uint64_t ullAvailVirtual = 0;
    std::uint64_t ullAvailExtendedVirtual = 0;
};
static_assert(sizeof(MEMORYSTATUSEX) == 64);

// False, with the last error set, when the record is too small, the process is not there, has ended but for
// its exit status, or may not be read. The record is then left as it was.
bool K32GetProcessMemoryInfo(HANDLE process, PROCESS_MEMORY_COUNTERS* counters, std::uint32_t size);

// VmRSS of this process alone, which costs less; 0 where it can't be read.
std::uint64_t resident_memory();

// False, with the last error set, when the length is wrong or /proc can't be read. Every figure of the record
// is then 0.
bool GlobalMemoryStatusEx(MEMORYSTATUSEX* status);
