#pragma once

// The live screen itself: what is drawn, and which keys do what.

#include <cstdint>
#include <string>
#include <vector>

#include "tools/memview/live_run.h"

namespace memview {

class TopScreen {
  public:
    TopScreen(LiveRun& run, LiveLook first) : run_(run), look_(std::move(first)) {}

    // Whether the terminal is one of a kind that can show it.
    static bool is_possible();

    // Returns when the user leaves; throws NoLauncher when the run ends. The terminal is as before in both
    // cases, also when a signal ends the process.
    void show();

  private:
    void draw();
    void draw_head(int width);
    void draw_sites(int height, int width);
    void draw_foot(int height, int width);
    bool handle(int key);
    void handle_search(int key);
    void look_again();

    LiveRun& run_;
    LiveLook look_;
    std::vector<std::int64_t> course_;  // bytes held at each look
    std::string search_;
    std::string told_;  // the answer to the last order
    bool is_searching_ = false;
};

}  // namespace memview
