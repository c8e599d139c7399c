#include "tools/memrun/agent/control_page.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "ktl_mem/queries.h"
#include "ktl_mem/running_reports.h"
#include "ktl_mem/tracking.h"
#include "platform/kept_errno.h"
#include "platform/mapped_memory.h"
#include "tools/memrun/agent/guarded_code.h"
#include "tools/memrun/agent/note.h"
#include "tools/memrun/contract.h"

namespace memrun::agent {

namespace {

using control::Order;
using control::Outcome;

const Orders* served = nullptr;
std::atomic<bool> is_busy{false};
std::atomic<std::uint32_t> stopped_word{0};  // what was tracked before the stop

std::uint64_t now_us() {
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

std::uint64_t now_ms() {
    return now_us() / 1000;
}

bool map_in_place(int fd, int flags) {
    return mmap(&control_page, control::page_bytes, PROT_READ | PROT_WRITE, MAP_FIXED | flags, fd, 0) !=
           MAP_FAILED;
}

// The parent's orders are not the child's.
void forget_page_in_child() {
    map_in_place(-1, MAP_PRIVATE | MAP_ANONYMOUS);
    is_busy = false;
}

void tell_figures() {
    MEM_TRACKING_FIGURES figures;
    if (!mem_get_tracking_figures(figures)) return;
    control_page.word = figures.word;
    control_page.events = figures.events;
    control_page.current_bytes = figures.current_bytes;
    control_page.current_blocks = figures.current_blocks;
    control_page.peak_bytes = figures.peak_bytes;
    control_page.own_bytes = figures.own_bytes;
    control_page.moment_ms = now_ms();
    control_page.figures_taken.fetch_add(1, std::memory_order_release);
}

// The folder's path, or an empty text when the page holds no name of one.
std::string folder_path() {
    char name[sizeof control_page.folder];
    std::memcpy(name, control_page.folder, sizeof name);
    const std::size_t length = strnlen(name, sizeof name);
    if (length == 0 || length == sizeof name || name[0] == '.' || std::strchr(name, '/') != nullptr)
        return {};
    return std::string(served->dir) + "/" + notes_folder + "/" + name;
}

Outcome write_running_reports() {
    const std::string folder = folder_path();
    if (folder.empty()) return Outcome::refused;
    if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        control_page.error = errno;
        return Outcome::cannot_write;
    }
    return mem_write_running_reports(folder) ? Outcome::done : Outcome::refused;
}

// Between stop and start frees went unseen: what was known of blocks is worth nothing any more.
void begin_anew() {
    mem_reset_tracking_entries();
    control_page.began_anew_ms = now_ms();
    append_note(*served, "anew %llu\n", static_cast<unsigned long long>(control_page.began_anew_ms));
}

Outcome start_tracking() {
    const std::uint32_t word = stopped_word.exchange(0);
    if (word == 0) return Outcome::refused;
    begin_anew();
    mem_enable_tracking(static_cast<MEM_TRACKING_GRANULARITY>(word));
    return Outcome::done;
}

Outcome stop_tracking() {
    MEM_TRACKING_FIGURES figures;
    if (!mem_get_tracking_figures(figures) || figures.word == 0) return Outcome::refused;
    stopped_word = figures.word;
    mem_disable_tracking(figures.word);
    return Outcome::done;
}

Outcome reset_tables() {
    MEM_TRACKING_FIGURES figures;
    if (!mem_get_tracking_figures(figures)) return Outcome::refused;
    begin_anew();
    return Outcome::done;
}

Outcome carry_out(Order order) {
    switch (order) {
        case Order::reports:
            return write_running_reports();
        case Order::start:
            return start_tracking();
        case Order::stop:
            return stop_tracking();
        case Order::reset:
            return reset_tables();
        case Order::none:
            break;
    }
    return Outcome::refused;
}

// What it allocates is none of the program's.
void obey() {
    const int was_blocked = mem_block_thread_tracking();
    const std::uint64_t number = control_page.order_number.load(std::memory_order_acquire);
    const std::uint64_t begin = now_us();
    const Outcome outcome = carry_out(control_page.order);
    tell_figures();
    control_page.took_us = now_us() - begin;
    control_page.outcome = outcome;
    control_page.answered.store(number, std::memory_order_release);
    if (was_blocked == 0) mem_unblock_thread_tracking();
}

// One thread at a time. What this thread cannot do is left to another.
void fulfil(bool (*is_inside)()) {
    const KEPT_ERRNO errno_is_kept;
    if (served == nullptr || getpid() != served->owner || is_busy.exchange(true)) return;
    const std::uint32_t wishes = control_page.wishes.exchange(0, std::memory_order_acquire);
    if ((wishes & control::wishes_figures) != 0) tell_figures();
    if ((wishes & control::wishes_order) != 0) {
        if (is_inside())
            control_page.wishes.fetch_or(control::wishes_order);
        else
            obey();
    }
    is_busy = false;
}

}  // namespace

constinit ControlPage control_page{};

int share_control_page(const Orders& orders) {
    const int fd = make_shared_memory("ktl_mem control", control::page_bytes);
    if (fd < 0) return -1;
    if (!map_in_place(fd, MAP_SHARED)) {
        close(fd);
        return -1;
    }
    control_page.magic = control::page_magic;
    control_page.version = control::page_version;
    static const int is_forgotten = pthread_atfork(nullptr, nullptr, forget_page_in_child);
    static_cast<void>(is_forgotten);
    served = &orders;
    return fd;
}

void fulfil_in_hook() {
    fulfil(is_in_guarded_code_beyond_hook);
}

void fulfil_in_signal() {
    fulfil(is_in_guarded_code);
}

bool hold_wishes() {
    constexpr int patience_ms = 5000;
    constexpr timespec turn = {0, 1'000'000};
    for (int waited = 0; is_busy.exchange(true); ++waited) {
        if (waited == patience_ms) return false;
        nanosleep(&turn, nullptr);
    }
    return true;
}

void release_wishes() {
    is_busy = false;
}

void tell_reports() {
    control_page.has_reports = 1;
}

void resume_for_reports() {
    const std::uint32_t word = stopped_word.exchange(0);
    if (word != 0) mem_enable_tracking(static_cast<MEM_TRACKING_GRANULARITY>(word));
}

}  // namespace memrun::agent
