// How the tools talk to a launcher that runs: a socket in the hidden folder of the output folder, one line of
// JSON for each question and for each answer.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

inline constexpr const char* control_folder = ".memrun";
inline constexpr const char* control_socket_name = "control";

// Whether the other side is this user, or the superuser.
bool is_trusted_peer(int socket);

// Sends the line with its end, within some seconds.
bool send_line(int socket, const std::string& line);

class NoLauncher : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A connection to the launcher that writes to the folder.
class LauncherConnection {
  public:
    // Throws NoLauncher, with a sentence, when there is none.
    explicit LauncherConnection(const std::string& folder);
    ~LauncherConnection();
    LauncherConnection(const LauncherConnection&) = delete;
    LauncherConnection& operator=(const LauncherConnection&) = delete;

    // Sends the line and waits for the answer, which is without its end. Throws NoLauncher when the launcher
    // goes, or says nothing for that long.
    std::string ask(const std::string& line, std::uint64_t timeout_ms);

  private:
    std::string folder_;
    int socket_;
    std::string text_;
};
