// The control socket: lines come in, a line goes out for each.
#pragma once

#include <poll.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace memrun::control {

// One thread.
class Listener {
  public:
    using Send = std::function<void(const std::string& line)>;
    // Calls `send` once, now or later; by then the asker may be gone.
    using Serve = std::function<void(const std::string& line, const Send& send)>;

    // Makes the socket DIR/control, for this user alone.
    Listener(const std::string& folder, Serve serve);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Waits until somebody asks, `fd` can be read or the time is over, and serves who asked.
    void wait(int fd, int timeout_ms);

  private:
    void accept_one();
    void read_from(int client);
    void drop(int client);
    void send(std::uint64_t number, int client, const std::string& line);

    struct Client {
        std::uint64_t number;  // descriptors are used again
        std::string text;
    };
    int socket_;
    Serve serve_;
    std::map<int, Client> clients_;
    std::uint64_t clients_met_ = 0;
};

}  // namespace memrun::control
