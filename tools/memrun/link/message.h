// What launcher and agent say to each other over their socket: one greeting of each side, with shared memory.
//
// Nothing here allocates. Failures show in the result alone; errno is not kept.
#pragma once

#include <sys/types.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>

namespace memrun::link {

// The socket's name in the hidden folder of the output folder.
inline constexpr const char* socket_name = "link";

// Neither side waits longer for the other.
inline constexpr int longest_wait_s = 1;

// What a piece of shared memory is for. A side passes over the kinds that it does not know.
enum class ShareKind : std::uint32_t {
    names = 1,        // of the process: what it asks and is answered
    call_paths = 2,   // of the process: its call paths
    control = 3,      // of the process: orders and figures
    names_bell = 4,   // of the launcher: rung by who asks
    successor = 5,    // of the process: no memory, but the file that is to take its place by exec
    known_names = 6,  // of the launcher: what its namer has answered to anybody, to be read
};

struct Share {
    ShareKind kind = ShareKind::names;
    int fd = -1;  // sealed against shrinking
};

inline constexpr std::size_t most_shares = 8;

struct Greeting {
    pid_t pid = 0;             // of the agent's process; 0 in the launcher's greeting
    char word[NAME_MAX] = {};  // middle word of its report files
    std::size_t count = 0;
    std::array<Share, most_shares> shares;

    // False when there is no room.
    bool add(ShareKind kind, int fd);
    // The descriptor of the first share of that kind; -1 when there is none.
    int find(ShareKind kind) const;
};

// Both for a stream socket. The descriptors of a greeting stay the sender's, and are new ones of the
// receiver's, closed at an exec.
bool send_greeting(int socket, const Greeting& greeting);
bool receive_greeting(int socket, Greeting& greeting);
void close_shares(Greeting& greeting);

// The user and process on the other side; false when it is another user's, who has no business here.
bool is_own_peer(int socket, pid_t& pid);

// Limits how long the socket's calls wait.
void limit_waits(int socket);

}  // namespace memrun::link
