#include "tools/memrun/link/server.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <utility>

#include "tools/memrun/link/address.h"

namespace memrun::link {

Server::Server(EventLoop& loop)
    : loop_(loop), socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}

Server::~Server() {
    loop_.stop();
    for (auto& [pidfd, guest] : guests_) {
        close_shares(guest.greeting);
        close(pidfd);
    }
    if (socket_ >= 0) close(socket_);
}

void Server::listen_in(const std::string& folder) const {
    const FolderAddress address(folder.c_str(), socket_name);
    if (!address.is_valid()) return;
    const mode_t found = umask(0177);
    if (bind(socket_, address.get(), FolderAddress::size()) == 0) listen(socket_, SOMAXCONN);
    umask(found);
}

void Server::begin() {
    if (socket_ >= 0) loop_.watch(socket_, [this] { accept_one(); });
    loop_.start();
}

void Server::accept_one() {
    const int connection = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) {
        // Without an address the socket would be ready for ever.
        int is_listening = 0;
        socklen_t size = sizeof is_listening;
        getsockopt(socket_, SOL_SOCKET, SO_ACCEPTCONN, &is_listening, &size);
        if (is_listening == 0) loop_.forget(socket_);
        return;
    }
    welcome(connection);
    close(connection);
}

void Server::welcome(int connection) {
    Guest guest;
    limit_waits(connection);
    if (!is_own_peer(connection, guest.pid) || !receive_greeting(connection, guest.greeting)) return;
    if (guest.greeting.find(ShareKind::successor) >= 0) {
        judge_successor(connection, guest.greeting);
        return;
    }
    guest.word = guest.greeting.word;
    see_off_former(guest.pid);
    const auto pidfd = static_cast<int>(syscall(SYS_pidfd_open, guest.pid, 0));
    Greeting answer;
    if (pidfd >= 0)
        for (Service* service : services_) service->on_arrival(guest, answer);
    send_greeting(connection, answer);
    if (pidfd < 0) {
        close_shares(guest.greeting);
        return;
    }
    guests_[pidfd] = std::move(guest);
    loop_.watch(pidfd, [this, pidfd] { see_off(pidfd); });
}

// A word in the answer means yes.
void Server::judge_successor(int connection, Greeting& question) const {
    const std::string path = "/proc/self/fd/" + std::to_string(question.find(ShareKind::successor));
    Greeting answer;
    answer.word[0] = judge_ && judge_(path) ? 'y' : 0;
    send_greeting(connection, answer);
    close_shares(question);
}

// A process that became another program greets again.
void Server::see_off_former(pid_t pid) {
    for (const auto& [pidfd, guest] : guests_) {
        if (guest.pid != pid) continue;
        see_off(pidfd);
        return;
    }
}

void Server::see_off(int pidfd) {
    loop_.forget(pidfd);
    const auto found = guests_.find(pidfd);
    for (Service* service : services_) service->on_departure(found->second);
    close_shares(found->second.greeting);
    guests_.erase(found);
    close(pidfd);
}

}  // namespace memrun::link
