// Starts allocator, tracker and agent before the constructors of any other object of the program, so that what
// these allocate is seen. Preloaded objects are otherwise the last of all libraries to be constructed. The loader
// runs the constructor of one object marked `-z initfirst` ahead of all others: this one, which needs nothing but
// the C library. Opening an object that is there already runs its constructors, and before them those of all that it
// depends on.
#include <dlfcn.h>
#include <elf.h>
#include <gnu/libc-version.h>
#include <link.h>
#include <stddef.h>

typedef void (*initializer)(int argc, char** argv, char** environment);

static const ElfW(Dyn) * entry_of(const struct link_map* object, ElfW(Sxword) tag) {
    const ElfW(Dyn)* entry = object->l_ld;
    while (entry->d_tag != DT_NULL && entry->d_tag != tag) ++entry;
    return entry->d_tag == tag ? entry : NULL;
}

// The C library takes arguments and environment from its initializers, which have not run yet, and hands them to
// the constructors of all that is opened. The loader runs them once more, to the same end.
static void start_c_library(int argc, char** argv, char** environment) {
    Dl_info info;
    struct link_map* c_library = NULL;
    if (dladdr1(gnu_get_libc_version(), &info, (void**)&c_library, RTLD_DL_LINKMAP) == 0) return;
    const ElfW(Dyn)* array = entry_of(c_library, DT_INIT_ARRAY);
    const ElfW(Dyn)* size = entry_of(c_library, DT_INIT_ARRAYSZ);
    if (array == NULL || size == NULL) return;
    const initializer* const initializers = (const initializer*)(c_library->l_addr + array->d_un.d_ptr);
    for (size_t i = 0; i < size->d_un.d_val / sizeof(initializer); ++i)
        initializers[i](argc, argv, environment);
}

// Nobody asks for the handles: what is preloaded stays.
__attribute__((constructor)) static void start(int argc, char** argv, char** environment) {
    start_c_library(argc, argv, environment);
    dlopen("libtcmalloc_minimal.so.4", RTLD_LAZY | RTLD_NOLOAD);
    dlopen("libktl_memrun_agent.so", RTLD_LAZY | RTLD_NOLOAD);
}
