// Preloaded beside the allocator: the floor of every tracker that works by hooks. Without a setting the hooks
// return at once; with BENCH_HOOKS=sizes they ask for ownership and size, as every tracking hook must.
#include <dlfcn.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

int (*get_ownership)(const void*);
std::size_t (*malloc_size)(void*);

// Volatile: what the hooks ask for must be asked for.
volatile std::size_t last_size;

void ignore_new(const void*, std::size_t) {}
void ignore_delete(const void*) {}

void ask(const void* block) {
    if (get_ownership(block) == 1) last_size = malloc_size(const_cast<void*>(block));
}
void ask_new(const void* block, std::size_t) {
    ask(block);
}
void ask_delete(const void* block) {
    ask(block);
}

template <class FUNCTION>
void find(FUNCTION& function, const char* name) {
    function = reinterpret_cast<FUNCTION>(dlsym(RTLD_DEFAULT, name));
}

__attribute__((constructor)) void attach() {
    int (*add_new)(void (*)(const void*, std::size_t)) = nullptr;
    int (*add_delete)(void (*)(const void*)) = nullptr;
    find(add_new, "MallocHook_AddNewHook");
    find(add_delete, "MallocHook_AddDeleteHook");
    find(get_ownership, "MallocExtension_GetOwnership");
    find(malloc_size, "tc_malloc_size");
    if (add_new == nullptr || add_delete == nullptr) std::abort();
    // The allocator builds what answers this at the first question, which must not come from a hook.
    void* block = std::malloc(1);
    get_ownership(block);
    std::free(block);
    const char* setting = std::getenv("BENCH_HOOKS");
    const bool sizes = setting != nullptr && std::strcmp(setting, "sizes") == 0;
    add_new(sizes ? ask_new : ignore_new);
    add_delete(sizes ? ask_delete : ignore_delete);
}

}  // namespace
