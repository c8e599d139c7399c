#include "tools/memrun/control/listener.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "tools/common/control_socket.h"
#include "tools/memrun/link/address.h"

namespace memrun::control {

namespace {

constexpr std::size_t longest_line = 65536;
constexpr std::size_t most_clients = 64;

int make_socket(const std::string& folder) {
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0) return -1;
    const link::FolderAddress address(folder.c_str(), control_socket_name);
    const mode_t found = umask(0177);
    const bool is_bound = address.is_valid() && bind(made, address.get(), link::FolderAddress::size()) == 0;
    umask(found);
    if (is_bound && listen(made, SOMAXCONN) == 0) return made;
    close(made);
    return -1;
}

}  // namespace

Listener::Listener(const std::string& folder, Serve serve)
    : socket_(make_socket(folder)), serve_(std::move(serve)) {}

Listener::~Listener() {
    for (const auto& [fd, client] : clients_) close(fd);
    if (socket_ >= 0) close(socket_);
}

void Listener::wait(int fd, int timeout_ms) {
    std::vector<pollfd> polled = {{fd, POLLIN, 0}, {socket_, POLLIN, 0}};
    for (const auto& [client, state] : clients_) polled.push_back({client, POLLIN, 0});
    if (poll(polled.data(), polled.size(), timeout_ms) <= 0) return;
    if (polled[1].revents != 0) accept_one();
    for (std::size_t i = 2; i < polled.size(); ++i)
        if (polled[i].revents != 0) read_from(polled[i].fd);
}

void Listener::accept_one() {
    const int client = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client < 0) return;
    if (clients_.size() >= most_clients || !is_trusted_peer(client)) {
        close(client);
        return;
    }
    clients_[client] = {++clients_met_, {}};
}

void Listener::read_from(int client) {
    char buffer[4096];
    const ssize_t size = recv(client, buffer, sizeof buffer, 0);
    std::string& text = clients_[client].text;
    if (size <= 0 || text.size() > longest_line) return drop(client);
    text.append(buffer, static_cast<std::size_t>(size));
    const std::uint64_t number = clients_[client].number;
    for (std::size_t end; (end = text.find('\n')) != std::string::npos;) {
        const std::string line = text.substr(0, end);
        text.erase(0, end + 1);
        serve_(line, [this, number, client](const std::string& answer) { send(number, client, answer); });
        if (!clients_.contains(client)) return;
    }
}

void Listener::drop(int client) {
    clients_.erase(client);
    close(client);
}

// Who does not read what he asked for is let go.
void Listener::send(std::uint64_t number, int client, const std::string& line) {
    const auto found = clients_.find(client);
    if (found == clients_.end() || found->second.number != number) return;
    if (!send_line(client, line)) drop(client);
}

}  // namespace memrun::control
