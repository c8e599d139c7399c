#include "tools/memrun/link/event_loop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <utility>
#include <vector>

namespace memrun::link {

EventLoop::EventLoop() : wake_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

EventLoop::~EventLoop() {
    stop();
    if (wake_fd_ >= 0) close(wake_fd_);
}

void EventLoop::watch(int fd, std::function<void()> action) {
    const std::lock_guard guard(mutex_);
    watched_[fd] = std::move(action);
    // The serving thread looks at what is watched before it waits.
    if (std::this_thread::get_id() != serving_) wake();
}

void EventLoop::forget(int fd) {
    const std::lock_guard guard(mutex_);
    watched_.erase(fd);
}

void EventLoop::start() {
    if (wake_fd_ < 0) return;
    sigset_t all;
    sigset_t found;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &found);
    thread_ = std::thread([this] { serve(); });
    pthread_sigmask(SIG_SETMASK, &found, nullptr);
}

void EventLoop::stop() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard guard(mutex_);
        is_over_ = true;
        wake();
    }
    thread_.join();
}

void EventLoop::wake() const {
    const std::uint64_t one = 1;
    const ssize_t ignored = write(wake_fd_, &one, sizeof one);
    static_cast<void>(ignored);
}

void EventLoop::serve() {
    {
        const std::lock_guard guard(mutex_);
        serving_ = std::this_thread::get_id();
    }
    while (true) {
        {
            const std::lock_guard guard(mutex_);
            if (is_over_) return;
        }
        run_ready();
    }
}

void EventLoop::run_ready() {
    std::vector<pollfd> polled = {{wake_fd_, POLLIN, 0}};
    {
        const std::lock_guard guard(mutex_);
        for (const auto& [fd, action] : watched_) polled.push_back({fd, POLLIN, 0});
    }
    if (poll(polled.data(), polled.size(), -1) <= 0) return;
    std::uint64_t rings;
    const ssize_t ignored = read(wake_fd_, &rings, sizeof rings);
    static_cast<void>(ignored);
    for (std::size_t i = 1; i < polled.size(); ++i) {
        if (polled[i].revents == 0) continue;
        std::function<void()> action;
        {
            // An action before this one may have had it forgotten.
            const std::lock_guard guard(mutex_);
            const auto found = watched_.find(polled[i].fd);
            if (found != watched_.end() && !is_over_) action = found->second;
        }
        if (action) action();
    }
}

}  // namespace memrun::link
