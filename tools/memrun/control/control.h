// The launcher's watch over a run: it answers who asks, takes checkpoints in time, and looks after the
// memory.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <thread>

#include "tools/memrun/control/desk.h"
#include "tools/memrun/control/followed.h"
#include "tools/memrun/control/listener.h"
#include "tools/memrun/control/scarcity.h"

namespace memrun::control {

struct ControlSettings {
    double checkpoint_every_s = 0;          // 0: only when it is ordered, or memory gets scarce
    std::string on_scarcity;                // a command of the user's; empty: none
    std::function<void()> have_code_named;  // called before code is named here
};

// The run as it was seen last.
struct LastLook {
    std::uint64_t checkpoint_age_ms = 0;  // 0: there is no checkpoint
    bool is_checkpoint_automatic = false;
    MemoryRoom room;
    // Whether the kernel has ended a process for its memory: in the cgroup of that folder, or elsewhere.
    bool is_killed_for_memory = false;
    std::string cgroup;
};

class Control {
  public:
    Control(Followed& followed, ControlSettings settings);
    ~Control();
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    // Starts the thread. `output` is the folder of the reports, which is there.
    void begin(const std::string& output);
    // Ends the thread; who still waits for an answer gets one.
    void end();
    LastLook last_look() const;

  private:
    void watch(const std::string& output);
    void serve(const std::string& line, const Listener::Send& send, Desk& desk,
               const std::string& output) const;
    Answer top(const Desk& desk, const std::string& output) const;
    Answer write_paths(const std::string& output) const;
    void tick(Desk& desk);
    void ask_for_figures() const;
    void take_checkpoint(Desk& desk) const;
    void look_at_cgroups();
    void look_for_kills();

    Followed& followed_;
    const ControlSettings settings_;
    Scarcity scarcity_;
    std::uint64_t next_checkpoint_ms_ = 0;
    std::map<std::string, std::uint64_t> kills_before_;  // by the folder of a cgroup
    std::uint64_t machine_kills_before_ = kills_on_machine();
    LastLook last_look_;
    int stop_fd_;
    std::thread thread_;
};

}  // namespace memrun::control
