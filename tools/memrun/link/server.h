// The launcher's end of the link: tracked processes come, are served, and end.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/memrun/link/event_loop.h"
#include "tools/memrun/link/message.h"

namespace memrun::link {

// A tracked process that has greeted. The pieces of memory that it shares stay open as long as it is known.
struct Guest {
    pid_t pid = 0;
    std::string word;
    Greeting greeting;
};

// Somebody in the launcher who does something for tracked processes. Called on the serving thread.
class Service {
  public:
    Service() = default;
    virtual ~Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    // May add shares of its own to the launcher's greeting.
    virtual void on_arrival(const Guest& guest, Greeting& answer) = 0;
    // The process has ended or become another program.
    virtual void on_departure(const Guest& guest) = 0;
};

class Server {
  public:
    // Makes the socket, without an address yet: the folder is made by the process that becomes the program.
    explicit Server(EventLoop& loop);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Before the loop starts. The service must live as long as the server.
    void add(Service& service) { services_.push_back(&service); }

    // Who answers whether an executable file can be tracked. Called on the serving thread.
    void judge_successors_by(std::function<bool(const std::string& path)> judge) {
        judge_ = std::move(judge);
    }

    // Gives the socket its place in the folder. Without it no agent finds the launcher, and all goes on
    // without a link; the agents' notes say so.
    void listen_in(const std::string& folder) const;

    // From here on agents are answered.
    void begin();

  private:
    void accept_one();
    void welcome(int socket);
    void judge_successor(int socket, Greeting& question) const;
    void see_off_former(pid_t pid);
    void see_off(int pidfd);

    EventLoop& loop_;
    int socket_;
    std::vector<Service*> services_;
    std::function<bool(const std::string& path)> judge_;
    std::map<int, Guest> guests_;  // by the descriptor that signals their end
};

}  // namespace memrun::link
