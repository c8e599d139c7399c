#include "tools/memrun/agent/interrupted_code.h"

#include <link.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

namespace memrun::agent {

namespace {

struct Range {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    bool holds(std::uintptr_t address) const { return address >= begin && address < end; }
};

// The two objects whose locks matter. What they call leaves a return address of theirs on the stack.
constexpr std::array<const char*, 2> guarded_names = {"/libtcmalloc_minimal.so", "/libktl_mem.so"};
std::array<Range, guarded_names.size()> guarded;

int note_object(dl_phdr_info* info, std::size_t, void*) {
    for (std::size_t name = 0; name < guarded_names.size(); ++name) {
        if (std::strstr(info->dlpi_name, guarded_names[name]) == nullptr) continue;
        for (int i = 0; i < info->dlpi_phnum; ++i) {
            const ElfW(Phdr)& segment = info->dlpi_phdr[i];
            const std::uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
            if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0)
                guarded[name] = {begin, begin + segment.p_memsz};
        }
    }
    return 0;
}

bool is_guarded(std::uintptr_t address) {
    return guarded[0].holds(address) || guarded[1].holds(address);
}

// A system call that the signal broke off: returning would show the program an interruption that it would not
// have seen. Allocator and tracker make none of that kind; what they wait in starts anew by itself.
bool is_broken_off_call(const greg_t* registers) {
    return registers[REG_RAX] == -EINTR;
}

constexpr std::size_t scanned_words = 8192;  // 64 KiB: more than the tracker's deepest stack

// Looks at every word of the stack above the interrupted frame; words left over from earlier calls make it
// see guarded code where there is none. Read through the kernel, since nobody says where this stack ends.
bool is_guarded_code_on_stack(std::uintptr_t stack_pointer) {
    static std::array<std::uintptr_t, scanned_words> words;
    static std::atomic_flag in_use;
    if (in_use.test_and_set()) return true;  // another thread looks at its own
    iovec local = {words.data(), sizeof words};
    iovec remote = {reinterpret_cast<void*>(stack_pointer), sizeof words};
    const ssize_t size = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
    const std::size_t count = size <= 0 ? 0 : static_cast<std::size_t>(size) / sizeof words[0];
    const bool found = std::any_of(words.begin(), words.begin() + count, is_guarded);
    in_use.clear();
    return found || count == 0;
}

}  // namespace

void find_guarded_code() {
    dl_iterate_phdr(note_object, nullptr);
}

bool can_be_left_here() {
    return !is_guarded_code_on_stack(reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)));
}

bool can_be_left(const void* context) {
    const greg_t* registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    if (is_broken_off_call(registers)) return true;
    if (is_guarded(static_cast<std::uintptr_t>(registers[REG_RIP]))) return false;
    return !is_guarded_code_on_stack(static_cast<std::uintptr_t>(registers[REG_RSP]));
}

}  // namespace memrun::agent
