// Calls the library by a script of words, and prints what it answers. Blocks have letters for names: "-" is
// nothing, and "m" is a mapping that is there from the start. A script begins untracked.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <iostream>
#include <list>
#include <thread>

#include "ktl_mem/mem.h"
#include "tests/process/behaviour.h"
#include "tests/process/kept.h"
#include "tests/process/module.h"

namespace {

char mapping[16384];
void* blocks[128] = {};
std::list<MEM_INITIALIZER> modules;
std::list<MEM_TBB_NO_TRACK_ALLOC_DEALLOC_UNTIL_SCOPE_EXIT> guards;
MEM_UTILS_CHUNK_ALLOC arena;

void*& named(const char* name) {
    return blocks[*name & 127];
}

unsigned char* bytes_of(const char* name) {
    return static_cast<unsigned char*>(kept(named(name)));
}

std::uint64_t number(const char* word) {
    return std::strtoull(word, nullptr, 10);
}

MEM_TRACKING_GRANULARITY bits(const char* word) {
    return static_cast<MEM_TRACKING_GRANULARITY>(number(word));
}

__attribute__((noinline)) void* allocate(std::size_t size) {
    return kept(std::malloc(size));
}

__attribute__((noinline)) void map(const char* name, std::uint64_t size) {
    mem_notify_memory_mapping_added(named(name), size);
    asm volatile("");
}

// What the library says by debug line, kept without an allocation.
char told[4096];
std::size_t told_length = 0;
bool keep_message(const char*, const char* format, va_list args) {
    const int length = std::vsnprintf(told + told_length, sizeof told - told_length, format, args);
    told_length += static_cast<std::size_t>(length);
    return true;
}

void fill(const char* name, std::uint64_t size, const char* hex) {
    std::fill_n(bytes_of(name), size, static_cast<unsigned char>(std::strtoul(hex, nullptr, 16)));
}

// The one value of a range of bytes, or "mixed".
void show_bytes(const unsigned char* begin, const unsigned char* end) {
    const bool is_one_value = std::count(begin, end, *begin) == end - begin;
    is_one_value ? std::printf("%02x ", *begin) : std::printf("mixed ");
}

void use_plugin(void* function, const char* name, std::uint64_t size) {
    named(name) = reinterpret_cast<decltype(&module_block)>(function)(size);
}

void close_bin(const char* tag) {
    std::uint64_t start = 0, end = 0, peak = 0;
    mem_close_profile_bin(tag, &start, &end, &peak);
}

// Counters as blocks/bytes.
void show(const char* name, bool found, const MEMORY_TRACKER_BASE& counters) {
    std::cout << name;
    if (!found) std::cout << " none";
    if (!found && counters.cumulative_bytes != 77) std::cout << " but touched";
    if (found)
        std::cout << " live " << counters.current_blocks << '/' << counters.current_bytes << " made "
                  << counters.cumulative_blocks << '/' << counters.cumulative_bytes << " mismatched "
                  << counters.cumulative_mismatched_bytes << " peak " << counters.peak_bytes;
    std::cout << '\n';
}

void show_block(const char* name, std::ptrdiff_t offset) {
    MEM_ADDRESS_TRACKER site;
    site.cumulative_bytes = 77;
    const bool found = mem_get_address_tracker(static_cast<char*>(named(name)) + offset, site);
    show(name, found, site);
}

void show_module(const char* name) {
    MEMORY_TRACKER_BASE counters{.cumulative_bytes = 77};
    const bool found = mem_get_module_tracker(name, counters);
    show(name, found, counters);
}

void show_statistics() {
    const MEM_BASE_STATS stats = mem_get_global_current();
    std::cout << "statistics " << stats.blocks << '/' << stats.bytes << '\n';
}

struct WORD {
    const char* name;
    int arguments;  // how many words behind it are its own
    void (*run)(char** arguments);
};
const WORD words[] = {
    {"on", 1, [](char** a) { mem_enable_tracking(bits(a[0])); }},
    {"off", 1, [](char** a) { mem_disable_tracking(bits(a[0])); }},
    {"enabled", 1, [](char** a) { std::cout << mem_tracking_is_enabled(bits(a[0])) << '\n'; }},
    {"guard", 0, [](char**) { guards.emplace_back(); }},
    {"unguard", 0, [](char**) { guards.pop_back(); }},
    {"malloc", 2, [](char** a) { named(a[0]) = allocate(number(a[1])); }},
    {"calloc", 2, [](char** a) { named(a[0]) = kept(std::calloc(1, number(a[1]))); }},
    {"realloc", 3, [](char** a) { named(a[0]) = kept(std::realloc(named(a[1]), number(a[2]))); }},
    {"errno", 0, [](char**) { std::cout << strerrorname_np(errno) << '\n'; }},
    {"free", 1, [](char** a) { std::free(kept(named(a[0]))); }},
    {"free_elsewhere", 1, [](char** a) { std::thread(std::free, named(a[0])).join(); }},
    {"fill", 3, [](char** a) { fill(a[0], number(a[1]), a[2]); }},
    {"bytes", 3, [](char** a) { show_bytes(bytes_of(a[0]) + number(a[1]), bytes_of(a[0]) + number(a[2])); }},
    {"distance", 2, [](char** a) { std::cout << bytes_of(a[1]) - bytes_of(a[0]) << ' '; }},
    {"chunk", 2, [](char** a) { named(a[0]) = arena.chunk_malloc(number(a[1]), 0); }},
    {"delete_chunk", 1, [](char** a) { arena.chunk_delete_when_chunking_disabled(named(a[0])); }},
    {"free_chunks", 0, [](char**) { arena.chunk_free_memory(); }},
    {"plugin", 2, [](char** a) { named(a[0]) = dlsym(dlopen(a[1], RTLD_NOW), "module_block"); }},
    {"call", 3, [](char** a) { use_plugin(named(a[0]), a[1], number(a[2])); }},
    {"open", 2, [](char** a) { mem_open_profile_bin(a[0], a[1]); }},
    {"close", 1, [](char** a) { close_bin(a[0]); }},
    {"sample", 0, [](char**) { mem_user_snapshot_tracking_data(); }},
    {"map", 2, [](char** a) { map(a[0], number(a[1])); }},
    {"unmap", 2, [](char** a) { mem_notify_memory_mapping_removed(named(a[0]), number(a[1])); }},
    {"unmap_elsewhere", 2,
     [](char** a) { std::thread(mem_notify_memory_mapping_removed, named(a[0]), number(a[1])).join(); }},
    {"block", 0, [](char**) { std::cout << "was blocked " << mem_block_thread_tracking() << '\n'; }},
    {"unblock", 0, [](char**) { std::cout << "was blocked " << mem_unblock_thread_tracking() << '\n'; }},
    {"show", 1, [](char** a) { show_block(a[0], 0); }},
    {"show_inside", 1, [](char** a) { show_block(a[0], 8); }},
    {"show_module", 1, [](char** a) { show_module(a[0]); }},
    {"statistics", 0, [](char**) { show_statistics(); }},
    {"reset", 0, [](char**) { mem_reset_tracking_entries(); }},
    {"listen", 0, [](char**) { mem_set_msg_local_vdebug_callback(keep_message); }},
    {"told", 0,
     [](char**) { std::cout << "told <" << std::string_view(told, std::exchange(told_length, 0)) << ">\n"; }},
    {"load", 1, [](char** a) { modules.emplace_back(*a[0] == '-' ? nullptr : a[0]); }},
    {"unload", 0, [](char**) { modules.pop_back(); }},
    {"modules", 0, [](char**) { std::cout << MEM_INITIALIZER::s_init_counter << " modules\n"; }},
    {"mapped", 0, [](char**) { std::cout << mem_info_get_process_current_virtual_used() << '\n'; }},
    {"in_use", 0, [](char**) { std::cout << mem_info_get_system_current_physical_in_use() << '\n'; }},
    {"peak_of", 1,
     [](char** a) { std::cout << mem_info_get_process_peak_virtual_used(number(a[0])) << '\n'; }},
    {"change_user", 0, [](char**) { static_cast<void>(!setuid(65534)); }},
    {"setenv", 2, [](char** a) { setenv(a[0], a[1], 1); }},
    {"pgo", 2, [](char** a) { mem_register_dll_for_pgo(a[0], a[1]); }},
    {"json", 0, [](char**) { mem_set_ipc_mode(MEM_IPC_MODE_JSON); }},
};

const WORD& word_named(const char* name) {
    for (const WORD& word : words)
        if (std::strcmp(word.name, name) == 0) return word;
    std::abort();
}

const BEHAVIOUR run_script("script", [](char** script) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // printing is no event
    named("m") = mapping;
    while (*script != nullptr) {
        const WORD& word = word_named(*script++);
        word.run(script);
        script += word.arguments;
    }
});

}  // namespace
