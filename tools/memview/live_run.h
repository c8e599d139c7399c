#pragma once

// A run that goes on, as its launcher describes it.

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/common/control_socket.h"

namespace memview {

struct LiveSite {
    std::string place;
    std::string function;
    std::int64_t bytes = 0;
    std::int64_t blocks = 0;
    std::int64_t change = 0;  // of the bytes since the look before
};

struct LiveLook {
    std::vector<std::string> processes;  // names with their numbers
    std::int64_t bytes = 0;              // held by all of them
    std::int64_t blocks = 0;
    std::int64_t peak = 0;
    std::int64_t resident = 0;
    double events_per_second = 0;
    double seconds_since_event = 0;
    bool knows_sites = false;
    std::vector<LiveSite> sites;
    std::string memory;  // how much of which limit is used; empty: no limit
};

class LiveRun {
  public:
    // Throws NoLauncher when nobody runs there, as do the others when the run ends.
    explicit LiveRun(const std::string& folder) : launcher_(folder) {}

    LiveLook look();
    // The launcher's word on an order: what it did, or why not.
    std::string order(const std::string& order, const std::string& name);

  private:
    void take_sites(const nlohmann::json& process, LiveLook& look);

    LauncherConnection launcher_;
    std::int64_t events_before_ = -1;
    std::int64_t looked_ms_ = 0;
    std::map<std::string, std::int64_t> bytes_before_;
    std::map<std::string, std::int64_t> bytes_now_;
};

}  // namespace memview
