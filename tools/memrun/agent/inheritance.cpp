#include "tools/memrun/agent/inheritance.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string_view>

#include "tools/memrun/contract.h"
#include "tools/memrun/link/client.h"

namespace memrun::agent {

namespace {

constexpr std::string_view preload_name = "LD_PRELOAD";

// Pointers first, the texts that had to be made behind them.
struct Inheritance {
    std::size_t count = 0;
    char** entries = nullptr;
    pid_t owner = 0;
    char folder[PATH_MAX + NAME_MAX] = {};
};
constinit Inheritance inheritance;

void* map(std::size_t size) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

// Appends a text to the room behind `end`; the last one of an entry brings its terminator.
void append(char*& end, std::string_view text) {
    std::memcpy(end, text.data(), text.size());
    end += text.size();
}

bool is_inherited(std::string_view entry) {
    return is_launchers(entry) && name_of(entry) != program_variable;
}

bool is_preload(std::string_view entry) {
    return name_of(entry) == preload_name;
}

// Room for all texts that the heir's environment needs beyond those that are there.
std::size_t new_text_size(char* const* own) {
    std::size_t size = 0;
    for (; *own != nullptr; ++own)
        if (is_launchers(*own)) size += saved_prefix.size() + 2 * (std::strlen(*own) + 1);
    for (std::size_t i = 0; i < inheritance.count; ++i)
        if (is_preload(inheritance.entries[i])) size += std::strlen(inheritance.entries[i]) + 1;
    return size;
}

// What the program preloads for its successor stands behind the launcher's list, once.
char* preload_entry(char*& end, const char* kept, const char* own) {
    char* const entry = end;
    append(end, kept);
    if (own != nullptr) {
        const std::string_view added = own + preload_name.size() + 1;
        if (!std::string_view(kept).ends_with(added)) {
            append(end, ":");
            append(end, added);
        }
    }
    *end++ = 0;
    return entry;
}

char* saved_entry(char*& end, const char* own) {
    char* const entry = end;
    append(end, saved_prefix);
    append(end, {own, std::strlen(own) + 1});
    return entry;
}

}  // namespace

void keep_inheritance(const Orders& orders) {
    std::size_t size = 0;
    std::size_t count = 0;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (!is_inherited(*entry)) continue;
        size += std::strlen(*entry) + 1;
        ++count;
    }
    auto* const entries = static_cast<char**>(map(size + count * sizeof(char*)));
    if (entries == nullptr) return;
    auto* end = reinterpret_cast<char*>(entries + count);
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (!is_inherited(*entry)) continue;
        entries[inheritance.count++] = end;
        append(end, {*entry, std::strlen(*entry) + 1});
    }
    inheritance.entries = entries;
    std::snprintf(inheritance.folder, sizeof inheritance.folder, "%s/%s", orders.dir, notes_folder);
    inheritance.owner = orders.owner;
}

bool has_heir() {
    return inheritance.owner != 0 && inheritance.owner == getpid();
}

bool can_inherit(int file) {
    struct stat status;
    return file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
           link::is_trackable(inheritance.folder, file);
}

HeirEnvironment::HeirEnvironment(char* const* own) : entries_(own) {
    std::size_t count = inheritance.count + 1;
    for (char* const* entry = own; *entry != nullptr; ++entry) ++count;
    size_ = count * sizeof(char*) + new_text_size(own);
    memory_ = map(size_);
    if (memory_ == nullptr) return;
    auto* next = static_cast<char**>(memory_);
    auto* end = reinterpret_cast<char*>(next + count);
    entries_ = next;
    const char* own_preload = nullptr;
    for (; *own != nullptr; ++own) {
        if (is_preload(*own)) own_preload = *own;
        *next++ = is_launchers(*own) ? saved_entry(end, *own) : *own;
    }
    for (std::size_t i = 0; i < inheritance.count; ++i) {
        char* const kept = inheritance.entries[i];
        *next++ = is_preload(kept) ? preload_entry(end, kept, own_preload) : kept;
    }
    *next = nullptr;
}

HeirEnvironment::~HeirEnvironment() {
    if (memory_ != nullptr) munmap(memory_, size_);
}

}  // namespace memrun::agent
