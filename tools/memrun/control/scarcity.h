// When memory gets scarce: the steps at which something is done, and the user's command at the first of them.
#pragma once

#include <sys/types.h>

#include <string>

#include "tools/memrun/control/memory_room.h"

namespace memrun::control {

// One thread.
class Scarcity {
  public:
    explicit Scarcity(std::string command) : command_(std::move(command)) {}
    ~Scarcity();
    Scarcity(const Scarcity&) = delete;
    Scarcity& operator=(const Scarcity&) = delete;

    // True when the use has risen to a further one of 80, 90 and 95 percent. A step counts anew when the use
    // has fallen ten percent below it.
    bool is_next_step(int percent);

    // Runs the user's command, once, by the shell, with the folder of the reports in KTL_MEM_DIR and what is
    // scarce in KTL_MEM_SCARCE. Nobody waits for it.
    void run_command(const std::string& output, const MemoryRoom& room);

  private:
    int step_ = 0;  // the percents of the last one; 0: none
    std::string command_;
    pid_t running_ = 0;
};

}  // namespace memrun::control
