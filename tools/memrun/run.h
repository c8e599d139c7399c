// Running the program: start, signals, end.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace memrun {

// How the program ended.
struct Ending {
    int pid = 0;
    int wait_status = 0;  // as wait() gives it
    double seconds = 0;
};

// Starts `path` with `command` as its arguments and waits for its end. In the new process, right before the
// start, `prepare` is given the process's id and returns the environment; what it throws is thrown here. When
// the start fails behind it, `take_back` is given the id. Meanwhile signals of the terminal reach the program
// alone, and SIGTERM, SIGHUP, SIGINT and SIGQUIT that somebody sends to the launcher are passed on. Throws
// Failure when the program cannot be started.
Ending run_program(const std::string& path, const std::vector<std::string>& command,
                   const std::function<std::vector<std::string>(int pid)>& prepare,
                   const std::function<void(int pid)>& take_back);

// Has a pipe or a file that this process opens never become one of its standard streams, where those are
// closed; the program finds them closed all the same. And a reader of standard error that leaves ends nothing
// here.
void guard_standard_streams();

// Ends this process as the program ended: with its status or by its signal.
[[noreturn]] void end_like(const Ending& ending);

}  // namespace memrun
