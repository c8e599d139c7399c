// The launcher's serving thread: it waits for descriptors and does what was asked for at each.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace memrun::link {

// Actions run on the serving thread, one at a time, and throw nothing. Signals stay with the other threads.
class EventLoop {
  public:
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // From now on `action` runs whenever the descriptor can be read or has come to its end. From any thread.
    void watch(int fd, std::function<void()> action);
    void forget(int fd);

    void start();
    // Returns when the action that runs has ended. Nothing runs any more behind it.
    void stop();

  private:
    void serve();
    void run_ready();
    void wake() const;

    std::mutex mutex_;
    std::map<int, std::function<void()>> watched_;
    int wake_fd_;
    bool is_over_ = false;
    std::thread thread_;
    std::thread::id serving_;  // from when it runs
};

}  // namespace memrun::link
