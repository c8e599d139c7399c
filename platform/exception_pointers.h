// What describes a fault of the process: SIGSEGV, SIGBUS, SIGFPE and SIGILL.
#pragma once

#include <cstdint>

struct EXCEPTION_RECORD {
    std::uint32_t ExceptionCode;  // the signal
    void* ExceptionAddress;       // the instruction
    const void* FaultAddress;     // the memory that it reached for, as siginfo_t has it
};

struct EXCEPTION_POINTERS {
    EXCEPTION_RECORD* ExceptionRecord;
    void* ContextRecord;  // a ucontext_t
};
