#include "platform/process_memory.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "platform/kept_errno.h"
#include "platform/last_error.h"
#include "platform/proc_text.h"
#include "platform/thread.h"

namespace {

constexpr std::uint64_t page_bytes = 4096;

// A file that is read once; the descriptor never crosses an exec and closing it keeps errno.
class PROC_FILE {
  public:
    explicit PROC_FILE(const char* path) : descriptor(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~PROC_FILE() {
        const KEPT_ERRNO errno_is_kept;
        if (descriptor >= 0) close(descriptor);
    }
    PROC_FILE(const PROC_FILE&) = delete;
    PROC_FILE& operator=(const PROC_FILE&) = delete;

    // Number of characters, 0 at the end, -1 with errno on failure.
    ssize_t read_some(char* buffer, std::size_t size) const {
        if (descriptor < 0) return -1;
        ssize_t got = 0;
        do {
            got = read(descriptor, buffer, size);
        } while (got < 0 && errno == EINTR);
        return got;
    }

  private:
    const THREAD_NOT_CANCELLED while_it_is_open;
    int descriptor;
};

// "/proc/PID" and a file name. The main thread of a process can end before the others and takes its memory
// figures with it, so this process is asked about through the calling thread.
class PROC_PATH {
  public:
    PROC_PATH(HANDLE process, const char* of_current, const char* file) {
        char* end = append(text, "/proc/");
        if (process == GetCurrentProcess()) {
            end = append(end, of_current);
        } else {
            end = std::to_chars(end, text + sizeof text, process).ptr;
        }
        *append(end, file) = '\0';
    }
    const char* c_str() const { return text; }

  private:
    static char* append(char* end, const char* part) { return std::copy_n(part, std::strlen(part), end); }

    char text[64];  // the longest number has 20 digits
};

bool read_figures(const char* path, std::span<PROC_FIGURE> figures) {
    const PROC_FILE file(path);
    PROC_KEY_READER reader(figures);
    char piece[1024];
    ssize_t got = 0;
    while ((got = file.read_some(piece, sizeof piece)) > 0) {
        reader.feed({piece, static_cast<std::size_t>(got)});
    }
    return got == 0;
}

bool read_page_faults(const char* path, std::uint64_t& faults) {
    char stat[1024];  // about 50 numbers of at most 20 digits in theory, some 350 characters in fact
    const PROC_FILE file(path);
    const ssize_t got = file.read_some(stat, sizeof stat);
    if (got < 0) return false;
    const auto found = proc_stat_page_faults({stat, static_cast<std::size_t>(got)});
    if (!found) errno = EBADMSG;
    faults = found.value_or(0);
    return found.has_value();
}

bool is_this_process(HANDLE process) {
    return process == GetCurrentProcess() || process == static_cast<HANDLE>(getpid());
}

// The kernel keeps no highest value of what is committed, so this is the highest that anybody has asked for.
std::uint64_t highest_committed(std::uint64_t committed) {
    static constinit std::atomic<std::uint64_t> highest{0};
    std::uint64_t known = highest.load(std::memory_order_relaxed);
    while (known < committed && !highest.compare_exchange_weak(known, committed, std::memory_order_relaxed)) {
    }
    return std::max(known, committed);
}

bool fail(int error) {
    SetLastError(static_cast<std::uint32_t>(error));
    return false;
}

}  // namespace

bool K32GetProcessMemoryInfo(HANDLE process, PROCESS_MEMORY_COUNTERS* counters, std::uint32_t size) {
    if (size < sizeof *counters) return fail(EINVAL);
    PROC_FIGURE figures[] = {{"VmData:"}, {"VmStk:"}, {"VmHWM:"}, {"VmRSS:"}};
    std::uint64_t faults = 0;
    if (!read_figures(PROC_PATH(process, "thread-self", "/status").c_str(), figures) ||
        !read_page_faults(PROC_PATH(process, "self", "/stat").c_str(), faults)) {
        return fail(errno == ENOENT ? ESRCH : errno);
    }
    const auto [data, stack, peak_resident, resident] = figures;
    const std::uint64_t committed = data.bytes + stack.bytes;
    // A process that has ended and waits for its parent has no memory any more.
    if (committed == 0) return fail(ESRCH);
    *counters = {};
    counters->cb = sizeof *counters;
    counters->PageFaultCount = static_cast<std::uint32_t>(faults);
    counters->PeakWorkingSetSize = peak_resident.bytes;
    counters->WorkingSetSize = resident.bytes;
    counters->PagefileUsage = committed;
    counters->PeakPagefileUsage = is_this_process(process) ? highest_committed(committed) : committed;
    return true;
}

std::uint64_t resident_memory() {
    char text[256];  // seven numbers, of which the second one counts the resident pages
    const PROC_FILE file("/proc/thread-self/statm");
    const ssize_t got = file.read_some(text, sizeof text);
    const char* const end = text + std::max<ssize_t>(got, 0);
    const char* const blank = std::find(static_cast<const char*>(text), end, ' ');
    if (blank == end) return 0;
    std::uint64_t pages = 0;
    std::from_chars(blank + 1, end, pages);
    return pages * page_bytes;
}

bool GlobalMemoryStatusEx(MEMORYSTATUSEX* status) {
    const std::uint32_t length = status->dwLength;
    *status = {};
    status->dwLength = length;
    if (length != sizeof *status) return fail(EINVAL);
    PROC_FIGURE figures[] = {{"MemTotal:"}, {"MemAvailable:"}, {"SwapTotal:"}, {"SwapFree:"}};
    if (!read_figures("/proc/meminfo", figures)) return fail(errno);
    const auto [total, available, swap_total, swap_free] = figures;
    // The kernel estimates what is available: never more than there is, or a difference would wrap.
    status->ullTotalPhys = total.bytes;
    status->ullAvailPhys = std::min(available.bytes, total.bytes);
    status->ullTotalPageFile = swap_total.bytes;
    status->ullAvailPageFile = std::min(swap_free.bytes, swap_total.bytes);
    if (total.bytes != 0) {
        const std::uint64_t in_use_kb = (status->ullTotalPhys - status->ullAvailPhys) / 1024;
        status->dwMemoryLoad = static_cast<std::uint32_t>(in_use_kb * 100 / (total.bytes / 1024));
    }
    return true;
}
