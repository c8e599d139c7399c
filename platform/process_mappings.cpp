#include "platform/process_mappings.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include "platform/kept_errno.h"
#include "platform/proc_text.h"
#include "platform/resident_pages.h"
#include "platform/symbols/own_memory.h"
#include "platform/thread.h"

namespace {

// The lines of a file one after the other. A line longer than the buffer ends where that ends.
class LINES_OF_FILE {
  public:
    LINES_OF_FILE(const char* path, std::span<char> room)
        : buffer(room), descriptor(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~LINES_OF_FILE() {
        const KEPT_ERRNO errno_is_kept;
        if (descriptor >= 0) close(descriptor);
    }
    LINES_OF_FILE(const LINES_OF_FILE&) = delete;
    LINES_OF_FILE& operator=(const LINES_OF_FILE&) = delete;

    bool is_open() const { return descriptor >= 0; }

    // Null at the end of the file. The line lives until the next call.
    const char* next(std::size_t& length) {
        for (;;) {
            const char* const line = buffer.data() + at;
            const void* const stop = std::memchr(line, '\n', filled - at);
            if (stop != nullptr || (filled - at == buffer.size()) || (is_at_end && at < filled)) {
                length = stop != nullptr ? static_cast<std::size_t>(static_cast<const char*>(stop) - line)
                                         : filled - at;
                at += std::min(length + 1, filled - at);
                return line;
            }
            if (is_at_end) return nullptr;
            read_more();
        }
    }

  private:
    void read_more() {
        std::memmove(buffer.data(), buffer.data() + at, filled - at);
        filled -= at;
        at = 0;
        ssize_t got = 0;
        do got = read(descriptor, buffer.data() + filled, buffer.size() - filled);
        while (got < 0 && errno == EINTR);
        if (got <= 0)
            is_at_end = true;
        else
            filled += static_cast<std::size_t>(got);
    }

    std::span<char> buffer;
    std::size_t at = 0;
    std::size_t filled = 0;
    bool is_at_end = false;
    const THREAD_NOT_CANCELLED while_it_is_open;
    const int descriptor;
};

bool visit_by_page_tables(MAPPING_VISITOR& visitor, MAPPING_BUFFERS& buffers) {
    RESIDENT_PAGES pages(buffers.regions);
    LINES_OF_FILE lines("/proc/thread-self/maps", buffers.mappings);
    if (!pages.are_known() || !lines.is_open()) return false;
    std::size_t length = 0;
    while (const char* const line = lines.next(length)) {
        const auto parsed = parse_mapping_line({line, length});
        if (!parsed) continue;
        PROCESS_MAPPING mapping;
        static_cast<MAPPING_LINE&>(mapping) = *parsed;
        mapping.resident = pages.in(mapping);
        visitor.visit(mapping);
    }
    return true;
}

}  // namespace

// The size follows the mapping's own line, which is gone from the buffer by then but for its copy here.
bool visit_mappings_by_smaps(MAPPING_VISITOR& visitor, MAPPING_BUFFERS& buffers) {
    LINES_OF_FILE lines("/proc/thread-self/smaps", buffers.mappings);
    if (!lines.is_open()) return false;
    std::optional<MAPPING_LINE> parsed;
    std::size_t length = 0;
    while (const char* const line = lines.next(length)) {
        const std::string_view text(line, length);
        if (text.starts_with("Rss:") && parsed) {
            PROCESS_MAPPING mapping;
            static_cast<MAPPING_LINE&>(mapping) = *parsed;
            mapping.resident = proc_kilobytes(text.substr(4));
            visitor.visit(mapping);
        } else if (const auto next = parse_mapping_line(text)) {
            parsed = next;
            const std::size_t kept = std::min(next->name.size(), sizeof buffers.name);
            std::memcpy(buffers.name, next->name.data(), kept);
            parsed->name = {buffers.name, kept};
        }
    }
    return true;
}

bool visit_process_mappings(MAPPING_VISITOR& visitor, MAPPING_BUFFERS& buffers) {
    return visit_by_page_tables(visitor, buffers) || visit_mappings_by_smaps(visitor, buffers);
}

bool is_in_loaded_module(std::uint64_t address) {
    dl_find_object found;
    return _dl_find_object(reinterpret_cast<void*>(address), &found) == 0;
}

bool is_top_of_thread_stack(std::uint64_t end, MAPPING_BUFFERS& buffers) {
    // The record of a thread begins with its own address, and has that again behind one word (the layout that
    // the ABI of thread-local storage fixes). It lies in the last page.
    auto& words = buffers.stack_top;
    const std::uint64_t begin = end - sizeof words;
    if (!symbols::read_own_memory(begin, words, sizeof words)) return false;
    for (std::size_t i = 0; i + 2 < std::size(words); ++i)
        if (words[i] == begin + i * sizeof words[0] && words[i + 2] == words[i]) return true;
    return false;
}
