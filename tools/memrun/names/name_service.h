// The launcher's side of naming code for the tracked processes: it sees to it that there is a namer.
#pragma once

#include <mutex>
#include <string>

#include "tools/memrun/link/event_loop.h"
#include "tools/memrun/link/server.h"
#include "tools/memrun/names/namer.h"

namespace memrun::names {

class NameService : public link::Service {
  public:
    // No folder: no cache. `fetches`: debuginfod servers are asked, too.
    NameService(link::EventLoop& loop, std::string cache_folder, bool fetches);
    ~NameService() override;

    void on_arrival(const link::Guest& guest, link::Greeting& answer) override;
    void on_departure(const link::Guest& guest) override;

    // Has code named for the launcher, too: symbols::ask works from here on. Any thread, any number of times.
    void serve_launcher();

    // Has the namer put its names on the disk and end. Nobody is answered from here on.
    void finish();

    // The paths of the modules that were asked for, once that is over.
    std::vector<std::string> modules() const;

  private:
    void make_table();
    void start_namer();
    void on_namer_end();
    void tell_namer(pid_t pid, int channel) const;
    void rouse_namer() const;
    void ring() const;
    [[noreturn]] void become_namer(int launcher);

    link::EventLoop& loop_;
    std::mutex mutex_;  // of the serving thread and the one that finishes
    NamerSeat seat_;
    int bell_fd_ = -1;
    int table_fd_ = -1;              // for those who read the table
    std::map<pid_t, int> channels_;  // of the guests, who keep them open
    int own_channel_ = -1;           // among them; stays open
    pid_t namer_ = 0;
    int namer_end_ = -1;  // signals the namer's end
    int to_namer_ = -1;
    int starts_left_ = 50;
    bool is_finished_ = false;
};

}  // namespace memrun::names
