#include "tools/memrun/link/client.h"

#include <sys/socket.h>
#include <unistd.h>

#include "tools/memrun/link/address.h"

namespace memrun::link {

namespace {

bool talk(int connection, const char* folder, const Greeting& mine, Greeting& answer) {
    const FolderAddress address(folder, socket_name);
    pid_t launcher = 0;
    limit_waits(connection);
    return address.is_valid() && connect(connection, address.get(), FolderAddress::size()) == 0 &&
           is_own_peer(connection, launcher) && send_greeting(connection, mine) &&
           receive_greeting(connection, answer);
}

// Over a connection of its own; false when nobody answers. What the answer shares is closed after `take`.
template <class Take>
bool ask_launcher(const char* folder, const Greeting& mine, Take take) {
    const int connection = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Greeting answer;
    const bool is_answered = connection >= 0 && talk(connection, folder, mine, answer);
    if (is_answered) take(answer);
    close_shares(answer);
    if (connection >= 0) close(connection);
    return is_answered;
}

}  // namespace

bool greet_launcher(const char* folder, Greeting& mine, void (*take)(const Greeting& answer)) {
    const bool is_answered = ask_launcher(folder, mine, take);
    close_shares(mine);
    return is_answered;
}

bool is_trackable(const char* folder, int file) {
    Greeting question;
    question.pid = getpid();
    question.add(ShareKind::successor, file);
    bool is_yes = false;
    ask_launcher(folder, question, [&](const Greeting& answer) { is_yes = answer.word[0] != 0; });
    return is_yes;
}

}  // namespace memrun::link
