#include "tools/memrun/control/followed.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "platform/mapped_memory.h"

namespace memrun::control {

namespace {

Page* map_page(int fd) {
    if (fd < 0) return nullptr;
    void* memory = map_shared_memory(fd, page_bytes);
    if (memory == nullptr) return nullptr;
    auto* const page = static_cast<Page*>(memory);
    if (page->magic == page_magic && page->version == page_version) return page;
    munmap(memory, page_bytes);
    return nullptr;
}

}  // namespace

std::uint64_t now_ms() {
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

Process::~Process() {
    if (page != nullptr) munmap(page, page_bytes);
    if (call_paths >= 0) close(call_paths);
}

void Followed::on_arrival(const link::Guest& guest, link::Greeting&) {
    auto process = std::make_shared<Process>(guest.pid, guest.word);
    process->page = map_page(guest.greeting.find(link::ShareKind::control));
    if (const int region = guest.greeting.find(link::ShareKind::call_paths); region >= 0)
        process->call_paths = fcntl(region, F_DUPFD_CLOEXEC, 0);
    const std::lock_guard guard(mutex_);
    // What a program held is gone once the one that took its place writes the same files.
    std::erase_if(ended_, [&](const auto& former) { return former->word == process->word; });
    running_.push_back(std::move(process));
}

void Followed::on_departure(const link::Guest& guest) {
    const std::lock_guard guard(mutex_);
    const auto found = std::find_if(running_.begin(), running_.end(),
                                    [&](const auto& process) { return process->pid == guest.pid; });
    if (found == running_.end()) return;
    const Process& process = **found;
    const bool has_reports = process.page != nullptr && process.page->has_reports != 0;
    ended_.push_back(has_reports ? std::make_shared<Process>(process.pid, process.word) : *found);
    running_.erase(found);
}

Processes Followed::running() const {
    const std::lock_guard guard(mutex_);
    return running_;
}

Processes Followed::ended() const {
    const std::lock_guard guard(mutex_);
    return ended_;
}

}  // namespace memrun::control
