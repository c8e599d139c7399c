#include <atomic>

#include "ktl_mem/process_memory.h"
#include "mem/base/atomic_maximum.h"
#include "mem/base/messages.h"
#include "platform/last_error.h"
#include "platform/process_memory.h"

namespace {

constexpr std::uint32_t neutral_language = 1024;

void post_last_error() {
    const char* text = nullptr;
    FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, GetLastError(),
                   neutral_language, &text, 0, nullptr);
    mem_msg_debug("%s", text);
    LocalFree(text);
}

template <class FIELD>
std::uint64_t process_figure(HANDLE process, FIELD PROCESS_MEMORY_COUNTERS::*field) {
    PROCESS_MEMORY_COUNTERS counters;
    if (K32GetProcessMemoryInfo(process, &counters, sizeof counters)) return counters.*field;
    post_last_error();
    return 0;
}

// The highest figures that this process has seen.
std::atomic<std::uint64_t> highest_physical_in_use{0};
std::atomic<std::uint64_t> highest_page_file_in_use{0};

MEMORYSTATUSEX system_status() {
    MEMORYSTATUSEX status;
    status.dwLength = sizeof status;
    GlobalMemoryStatusEx(&status);  // every figure is 0 when it fails
    return status;
}

std::uint64_t physical_in_use() {
    const MEMORYSTATUSEX status = system_status();
    return status.ullTotalPhys - status.ullAvailPhys;
}

std::uint64_t page_file_in_use() {
    const MEMORYSTATUSEX status = system_status();
    return status.ullTotalPageFile - status.ullAvailPageFile;
}

}  // namespace

std::uint64_t mem_info_get_process_current_virtual_used() {
    return mem_info_get_process_current_virtual_used(GetCurrentProcess());
}

std::uint64_t mem_info_get_process_current_virtual_used(std::uint64_t process) {
    return process_figure(process, &PROCESS_MEMORY_COUNTERS::PagefileUsage);
}

std::uint64_t mem_info_get_process_current_working_set_size() {
    return mem_info_get_process_current_working_set_size(GetCurrentProcess());
}

std::uint64_t mem_info_get_process_current_working_set_size(std::uint64_t process) {
    return process_figure(process, &PROCESS_MEMORY_COUNTERS::WorkingSetSize);
}

std::uint64_t mem_info_get_process_peak_virtual_used_from_os() {
    return mem_info_get_process_peak_virtual_used_from_os(GetCurrentProcess());
}

std::uint64_t mem_info_get_process_peak_virtual_used_from_os(std::uint64_t process) {
    return process_figure(process, &PROCESS_MEMORY_COUNTERS::PeakPagefileUsage);
}

std::uint64_t mem_info_get_process_peak_virtual_used() {
    return mem_info_get_process_peak_virtual_used_from_os();
}

std::uint64_t mem_info_get_process_peak_virtual_used(std::uint64_t process) {
    return mem_info_get_process_peak_virtual_used_from_os(process);
}

std::uint64_t mem_info_get_process_peak_working_set_size() {
    return process_figure(GetCurrentProcess(), &PROCESS_MEMORY_COUNTERS::PeakWorkingSetSize);
}

std::uint64_t mem_info_get_process_page_fault_count() {
    return process_figure(GetCurrentProcess(), &PROCESS_MEMORY_COUNTERS::PageFaultCount);
}

std::uint64_t mem_info_get_system_current_physical_in_use() {
    const std::uint64_t sample = physical_in_use();
    mem_raise(highest_physical_in_use, sample);
    return sample;
}

std::uint64_t mem_info_get_system_peak_physical_in_use() {
    return mem_raise(highest_physical_in_use, physical_in_use());
}

std::uint64_t mem_info_get_system_current_page_file_in_use() {
    const std::uint64_t sample = page_file_in_use();
    mem_raise(highest_page_file_in_use, sample);
    return sample;
}

std::uint64_t mem_info_get_system_peak_page_file_in_use() {
    return mem_raise(highest_page_file_in_use, page_file_in_use());
}
