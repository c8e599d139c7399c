// What the system says about the memory of a process and of the machine, with or without tracking and
// whatever the allocator. Figures are in bytes, page faults are a count.
//
// A process is named by its id. Virtual used is its private memory that can be written (VmData + VmStk of the
// kernel): reservations without access and mapped files do not count. The working set is what lies in memory
// (VmRSS). The peak of the working set covers the process's whole life. The kernel keeps no peak of virtual
// used: that of this process is the highest figure that any of these calls and the tracker's samples have
// seen, that of another process its present figure. A process that is not there, has ended, or may not be
// read gives 0 and one debug line (services.h).
//
// All calls are safe from any thread. A call that succeeds allocates nothing and reads one or two files of
// /proc, some microseconds; none belongs in an allocator hook, because a failure posts its line.
#pragma once

#include <cstdint>

#include "ktl_mem/export.h"

KTL_MEM_API std::uint64_t mem_info_get_process_current_virtual_used();
KTL_MEM_API std::uint64_t mem_info_get_process_current_virtual_used(std::uint64_t process);
KTL_MEM_API std::uint64_t mem_info_get_process_current_working_set_size();
KTL_MEM_API std::uint64_t mem_info_get_process_current_working_set_size(std::uint64_t process);
KTL_MEM_API std::uint64_t mem_info_get_process_peak_virtual_used_from_os();
KTL_MEM_API std::uint64_t mem_info_get_process_peak_virtual_used_from_os(std::uint64_t process);
KTL_MEM_API std::uint64_t mem_info_get_process_peak_virtual_used();
KTL_MEM_API std::uint64_t mem_info_get_process_peak_virtual_used(std::uint64_t process);
KTL_MEM_API std::uint64_t mem_info_get_process_peak_working_set_size();

// Minor and major faults of all threads, modulo 2^32.
KTL_MEM_API std::uint64_t mem_info_get_process_page_fault_count();

// The machine: physical memory that is not available, swap that is not free. A peak is the highest figure
// that one of these four calls of this process has seen, so it is only as fine as they are frequent. 0 when
// the system does not report.
KTL_MEM_API std::uint64_t mem_info_get_system_current_physical_in_use();
KTL_MEM_API std::uint64_t mem_info_get_system_peak_physical_in_use();
KTL_MEM_API std::uint64_t mem_info_get_system_current_page_file_in_use();
KTL_MEM_API std::uint64_t mem_info_get_system_peak_page_file_in_use();
