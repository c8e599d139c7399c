// Where orders to the tracked processes are given and their answers collected. One order is at hand at a
// time; the others wait in their order.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>

#include "tools/memrun/control/followed.h"
#include "tools/memrun/control/request.h"

namespace memrun::control {

// One thread.
class Desk {
  public:
    Desk(Followed& followed, std::string output) : followed_(followed), output_(std::move(output)) {}

    // `reply` is called once, in this call or in a later step.
    void ask(const Request& request, Reply reply);

    // Goes on with the order at hand; to be called often while there is one.
    void step();
    bool is_idle() const { return jobs_.empty(); }

    // Whether the launcher may have reports taken by itself: after some were, there is a pause of fifty times
    // what they took.
    bool may_take_reports() const { return now_ms() >= quiet_until_ms_; }

    // 0: there is none.
    std::uint64_t last_checkpoint_ms() const { return last_checkpoint_ms_; }
    bool is_last_checkpoint_automatic() const { return is_last_checkpoint_automatic_; }

    // Replies to all that still wait.
    void close();

  private:
    struct Job {
        Request request;
        Reply reply;
        std::uint64_t deadline_ms = 0;
        bool is_given = false;
        std::string folder;                      // that reports are written into; empty for other orders
        std::map<pid_t, std::uint64_t> numbers;  // of the orders given
        Processes waited_for;
        Answer answers = Answer::array();
        std::uint64_t slowest_us = 0;
        std::uint64_t interrupted_ms = 0;
    };

    bool must_wait(const Request& request) const;
    void give(Job& job);
    void collect(Job& job);
    void interrupt(Job& job);
    void withdraw(Job& job);
    void finish(Job& job);
    Answer publish(Job& job);

    Followed& followed_;
    const std::string output_;
    std::deque<Job> jobs_;
    const std::uint64_t begun_ms_ = now_ms();
    std::uint64_t spent_us_ = 0;  // on reports of all orders
    std::uint64_t quiet_until_ms_ = 0;
    std::uint64_t next_reports_ms_ = 0;  // that somebody orders
    std::uint64_t folders_made_ = 0;
    std::uint64_t last_checkpoint_ms_ = 0;
    bool is_last_checkpoint_automatic_ = false;
};

}  // namespace memrun::control
