#include "tools/common/control_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>

namespace {

constexpr int longest_send_ms = 5000;

bool wait_for(int socket, short event, std::uint64_t timeout_ms) {
    pollfd polled = {socket, event, 0};
    const int limit = timeout_ms > INT_MAX ? INT_MAX : static_cast<int>(timeout_ms);
    int ready;
    do ready = poll(&polled, 1, limit);
    while (ready < 0 && errno == EINTR);
    return ready > 0;
}

// By the descriptor of its folder, whose path may be too long for an address. 0 or an errno.
int connect_in(int socket, const std::string& folder) {
    const int opened = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0) return errno;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", opened,
                  control_socket_name);
    const int error =
        connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
    close(opened);
    return error;
}

std::string why_none(const std::string& folder, int error) {
    struct stat status;
    if (stat(folder.c_str(), &status) != 0) return "'" + folder + "': " + std::strerror(errno);
    if (error == EACCES || error == EPERM) return "'" + folder + "' is written by another user's ktl_memrun";
    return "no ktl_memrun writes to '" + folder + "' just now: give the output folder of a run that goes on";
}

}  // namespace

bool is_trusted_peer(int socket) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
    return peer.uid == geteuid() || peer.uid == 0;
}

bool send_line(int socket, const std::string& line) {
    const std::string text = line + "\n";
    for (std::size_t sent = 0; sent < text.size();) {
        const ssize_t size = send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (size > 0)
            sent += static_cast<std::size_t>(size);
        else if ((errno != EAGAIN && errno != EINTR) || !wait_for(socket, POLLOUT, longest_send_ms))
            return false;
    }
    return true;
}

LauncherConnection::LauncherConnection(const std::string& folder)
    : folder_(folder), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int error = connect_in(socket_, folder + "/" + control_folder);
    const bool is_theirs = error == 0 && geteuid() != 0 && !is_trusted_peer(socket_);
    if (error == 0 && !is_theirs) return;
    close(socket_);
    throw NoLauncher(why_none(folder, is_theirs ? EPERM : error));
}

LauncherConnection::~LauncherConnection() {
    close(socket_);
}

std::string LauncherConnection::ask(const std::string& line, std::uint64_t timeout_ms) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    if (!send_line(socket_, line)) throw NoLauncher("the ktl_memrun of '" + folder_ + "' has ended");
    for (;;) {
        if (const std::size_t end = text_.find('\n'); end != std::string::npos) {
            std::string answer = text_.substr(0, end);
            text_.erase(0, end + 1);
            return answer;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0 || !wait_for(socket_, POLLIN, static_cast<std::uint64_t>(left)))
            throw NoLauncher("the ktl_memrun of '" + folder_ + "' does not answer");
        char buffer[65536];
        const ssize_t size = recv(socket_, buffer, sizeof buffer, 0);
        if (size <= 0) throw NoLauncher("the ktl_memrun of '" + folder_ + "' has ended");
        text_.append(buffer, static_cast<std::size_t>(size));
    }
}
