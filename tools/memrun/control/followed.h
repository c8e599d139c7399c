// The tracked processes of a run, with what each shares with the launcher.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/memrun/control/page.h"
#include "tools/memrun/link/server.h"

namespace memrun::control {

// Milliseconds on the clock of Page::moment_ms.
std::uint64_t now_ms();

struct Process {
    Process(pid_t number, std::string file_word) : pid(number), word(std::move(file_word)) {}
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    const pid_t pid;
    const std::string word;  // middle word of its report files
    Page* page = nullptr;    // null when it shares none
    int call_paths = -1;     // its region, or -1; stays open when the process has ended
    std::uint64_t arrived_ms = now_ms();
    std::uint64_t figures_wished_ms = 0;  // the desk's own: when it asked last
};
using Processes = std::vector<std::shared_ptr<Process>>;

// Any thread.
class Followed : public link::Service {
  public:
    void on_arrival(const link::Guest& guest, link::Greeting& answer) override;
    void on_departure(const link::Guest& guest) override;

    Processes running() const;
    // Without what they shared, where they have written their reports.
    Processes ended() const;

  private:
    mutable std::mutex mutex_;
    Processes running_;
    Processes ended_;
};

}  // namespace memrun::control
