#include "ktl_mem/memory_manager.h"
#include "mem/base/counted_lock.h"
#include "mem/base/messages.h"
#include "mem/base/stats.h"
#include "platform/modules.h"
#include "platform/new_mode.h"

MEM_MANAGER mem_manager;

namespace {

MEM_SEGMENT mem_default_segment;

template <class FUNCTION>
FUNCTION find_extension(const char* entry) {
    return reinterpret_cast<FUNCTION>(GetProcAddress(GetModuleHandleA("tcmalloc_minimal"), entry));
}

}  // namespace

int MEM_SEGMENT::get_id() {
    return 1;
}
void MEM_SEGMENT::check_memory_guards() {}
void MEM_SEGMENT::dump(std::ofstream& /*stream*/) {}
void MEM_SEGMENT::dump(std::ofstream& /*stream*/, int /*level*/) {}
void MEM_SEGMENT::dump(const char* /*text*/) {}
void MEM_SEGMENT::dump(const char* /*text*/, int /*level*/) {}

std::uint64_t MEM_MANAGER::current_total_memory() {
    return static_cast<std::uint64_t>(mem_stats.current().bytes);
}

std::uint64_t MEM_MANAGER::peak_total_memory() {
    return static_cast<std::uint64_t>(mem_stats.peak().bytes);
}

std::size_t MEM_MANAGER::msize(void* block) {
    return _msize(block);
}
void MEM_MANAGER::check_memory_guards() {}
MEM_SEGMENT* MEM_MANAGER::get_default_segment() {
    return &mem_default_segment;
}
void MEM_MANAGER::initialize() {
    mem_create_lock();
}

bool mem_is_allocated(const void* /*block*/) {
    return true;
}

namespace MEM::MALLOC_EXTENSION {

int get_numeric_property(const char* property, std::uint64_t* value) {
    using GET = int (*)(const char*, std::size_t*);
    static const auto get = find_extension<GET>("MallocExtension_GetNumericProperty");
    return get == nullptr ? -1 : get(property, value);
}

void release_free_memory() {
    static const auto release = find_extension<void (*)()>("MallocExtension_ReleaseFreeMemory");
    if (release != nullptr) release();
}

double get_memory_release_rate() {
    static const auto get = find_extension<double (*)()>("MallocExtension_GetMemoryReleaseRate");
    return get == nullptr ? -1.0 : get();
}

void set_memory_release_rate(double rate) {
    static const auto set = find_extension<void (*)(double)>("MallocExtension_SetMemoryReleaseRate");
    if (set != nullptr) set(rate);
}

void print_message(const std::string& text) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"  // the text is the format: that is the contract
    mem_msg_debug(text.c_str());
#pragma GCC diagnostic pop
}

}  // namespace MEM::MALLOC_EXTENSION
