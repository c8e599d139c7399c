#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>

#include "tests/fuzz/targets.h"
#include "tools/memrun/control/followed.h"
#include "tools/memrun/link/message.h"

namespace fuzz {

namespace {

using namespace memrun;

std::size_t open_files() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

// A message with that many descriptors of one file.
void send(int socket, Bytes bytes, int descriptor, std::size_t count) {
    iovec data = {const_cast<std::uint8_t*>(bytes.data()), bytes.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(16 * sizeof(int))> space{};
    msghdr header{};
    header.msg_iov = &data;
    header.msg_iovlen = 1;
    if (count != 0) {
        header.msg_control = space.data();
        header.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr* const control = CMSG_FIRSTHDR(&header);
        control->cmsg_level = SOL_SOCKET;
        control->cmsg_type = SCM_RIGHTS;
        control->cmsg_len = CMSG_LEN(count * sizeof(int));
        for (std::size_t i = 0; i < count; ++i)
            std::memcpy(CMSG_DATA(control) + i * sizeof(int), &descriptor, sizeof(int));
    }
    sendmsg(socket, &header, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void welcome(const link::Greeting& greeting) {
    control::Followed followed;
    link::Guest guest;
    guest.pid = greeting.pid;
    guest.word = greeting.word;
    guest.greeting = greeting;
    link::Greeting answer;
    followed.on_arrival(guest, answer);
    for (const auto& process : followed.running())
        if (process->page != nullptr) require(process->page->magic == control::page_magic, "a page is one");
    followed.on_departure(guest);
}

// The first byte says how many descriptors come along; they are of a file with all the bytes.
void take(Bytes bytes) {
    if (bytes.empty()) return;
    const MemoryFile file(bytes);
    const std::size_t before = open_files();
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "there is a socket");
    send(ends[0], bytes.subspan(1), file.descriptor(), bytes[0] % 16);
    shutdown(ends[0], SHUT_WR);
    link::Greeting greeting;
    if (link::receive_greeting(ends[1], greeting)) welcome(greeting);
    link::close_shares(greeting);
    for (const int end : ends) close(end);
    require(open_files() == before, "no descriptor is left");
}

// A real greeting as its bytes, with two pieces of memory, and one behind a page.
std::vector<std::string> seeds() {
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "there is a socket");
    link::Greeting greeting;
    greeting.pid = 4711;
    std::strcpy(greeting.word, "app");
    greeting.add(link::ShareKind::control, ends[0]);
    greeting.add(link::ShareKind::call_paths, ends[0]);
    link::send_greeting(ends[0], greeting);
    std::string bytes(1 << 12, '\0');
    const ssize_t size = read(ends[1], bytes.data(), bytes.size());
    for (const int end : ends) close(end);
    return {'\2' + bytes.substr(0, static_cast<std::size_t>(size)), '\0' + bytes.substr(0, 20)};
}

}  // namespace

const Target link = {"link", take, seeds};

}  // namespace fuzz
