// dlopen and dlmopen in front of the loader's: they take RTLD_DEEPBIND out.
#include "tools/memrun/agent/deep_binding.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>

#include "tools/memrun/agent/note.h"

namespace memrun::agent {

namespace {

std::atomic<const Orders*> noted_for{nullptr};

void note_once(const char* object) {
    const Orders* const orders = noted_for;
    if (orders == nullptr || getpid() != orders->owner) return;
    if (noted_for.exchange(nullptr) != nullptr) append_note(*orders, "unbound %s\n", object);
}

void* next_in_line(const char* name, const char* object, int mode) {
    if ((mode & RTLD_DEEPBIND) != 0 && object != nullptr) note_once(object);
    return dlsym(RTLD_NEXT, name);
}

}  // namespace

void note_deep_binding(const Orders& orders) {
    noted_for = &orders;
}

}  // namespace memrun::agent

// Called below, with what the program asked for; give the loader's own.
extern "C" {
void* memrun_next_dlopen(const char* object, int mode) __attribute__((used));
void* memrun_next_dlopen(const char* object, int mode) {
    return memrun::agent::next_in_line("dlopen", object, mode);
}

void* memrun_next_dlmopen(Lmid_t, const char* object, int mode) __attribute__((used));
void* memrun_next_dlmopen(Lmid_t, const char* object, int mode) {
    return memrun::agent::next_in_line("dlmopen", object, mode);
}
}

static_assert(RTLD_DEEPBIND == 8);

// The loader looks at its return address for who asks, whose search path and name space it then takes. So the
// calls do not return here: they jump on with the arguments and the return address that they were made with.
asm(R"(
    .macro memrun_pass_on name, mode
    .globl \name
    .type \name, @function
\name:
    .cfi_startproc
    endbr64
    push %rdi
    .cfi_adjust_cfa_offset 8
    push %rsi
    .cfi_adjust_cfa_offset 8
    push %rdx
    .cfi_adjust_cfa_offset 8
    call memrun_next_\name
    pop %rdx
    .cfi_adjust_cfa_offset -8
    pop %rsi
    .cfi_adjust_cfa_offset -8
    pop %rdi
    .cfi_adjust_cfa_offset -8
    and $~8, \mode
    jmp *%rax
    .cfi_endproc
    .size \name, . - \name
    .endm

    .text
    memrun_pass_on dlopen, %esi
    memrun_pass_on dlmopen, %edx
)");
