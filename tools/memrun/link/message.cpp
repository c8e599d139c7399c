#include "tools/memrun/link/message.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace memrun::link {

namespace {

constexpr std::uint32_t greeting_mark = 0x6b746c31;

// As it goes over the socket.
struct Packet {
    std::uint32_t mark = greeting_mark;
    std::int32_t pid = 0;
    std::uint32_t count = 0;
    std::array<ShareKind, most_shares> kinds{};
    char word[NAME_MAX] = {};
};

struct Descriptors {
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof(int) * most_shares)] = {};
};

msghdr header_of(iovec& data, Descriptors& descriptors) {
    msghdr header = {};
    header.msg_iov = &data;
    header.msg_iovlen = 1;
    header.msg_control = descriptors.space;
    header.msg_controllen = sizeof descriptors.space;
    return header;
}

// Room and head for the descriptors of the greeting.
void put_descriptors(const Greeting& greeting, msghdr& header) {
    const std::size_t size = greeting.count * sizeof(int);
    header.msg_controllen = size == 0 ? 0 : CMSG_SPACE(size);
    if (size == 0) return;
    cmsghdr* control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_RIGHTS;
    control->cmsg_len = CMSG_LEN(size);
    for (std::size_t i = 0; i < greeting.count; ++i)
        std::memcpy(CMSG_DATA(control) + i * sizeof(int), &greeting.shares[i].fd, sizeof(int));
}

void take_descriptors(msghdr& header, Greeting& greeting) {
    const cmsghdr* control = CMSG_FIRSTHDR(&header);
    if (control == nullptr || control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS) return;
    greeting.count = std::min((control->cmsg_len - CMSG_LEN(0)) / sizeof(int), most_shares);
    for (std::size_t i = 0; i < greeting.count; ++i)
        std::memcpy(&greeting.shares[i].fd, CMSG_DATA(control) + i * sizeof(int), sizeof(int));
}

template <class Call>
ssize_t repeated(Call call) {
    ssize_t result;
    do result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

}  // namespace

bool Greeting::add(ShareKind kind, int fd) {
    if (fd < 0 || count == most_shares) return false;
    shares[count++] = {kind, fd};
    return true;
}

int Greeting::find(ShareKind kind) const {
    for (std::size_t i = 0; i < count; ++i)
        if (shares[i].kind == kind) return shares[i].fd;
    return -1;
}

bool send_greeting(int socket, const Greeting& greeting) {
    Packet packet;
    packet.pid = greeting.pid;
    packet.count = static_cast<std::uint32_t>(greeting.count);
    std::memcpy(packet.word, greeting.word, sizeof packet.word);
    for (std::size_t i = 0; i < greeting.count; ++i) packet.kinds[i] = greeting.shares[i].kind;
    Descriptors descriptors;
    iovec data = {&packet, sizeof packet};
    msghdr header = header_of(data, descriptors);
    put_descriptors(greeting, header);
    return repeated([&] { return sendmsg(socket, &header, MSG_NOSIGNAL); }) == sizeof packet;
}

bool receive_greeting(int socket, Greeting& greeting) {
    greeting = {};
    Packet packet;
    Descriptors descriptors;
    iovec data = {&packet, sizeof packet};
    msghdr header = header_of(data, descriptors);
    const ssize_t size = repeated([&] { return recvmsg(socket, &header, MSG_CMSG_CLOEXEC | MSG_WAITALL); });
    if (size < 0) return false;
    take_descriptors(header, greeting);
    const bool is_whole = size == sizeof packet && packet.mark == greeting_mark &&
                          packet.count == greeting.count && packet.word[NAME_MAX - 1] == 0;
    if (!is_whole) {
        close_shares(greeting);
        return false;
    }
    greeting.pid = packet.pid;
    std::memcpy(greeting.word, packet.word, sizeof packet.word);
    for (std::size_t i = 0; i < greeting.count; ++i) greeting.shares[i].kind = packet.kinds[i];
    return true;
}

void close_shares(Greeting& greeting) {
    for (std::size_t i = 0; i < greeting.count; ++i) close(greeting.shares[i].fd);
    greeting.count = 0;
}

bool is_own_peer(int socket, pid_t& pid) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != geteuid()) return false;
    pid = peer.pid;
    return true;
}

void limit_waits(int socket) {
    const timeval limit = {longest_wait_s, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

}  // namespace memrun::link
