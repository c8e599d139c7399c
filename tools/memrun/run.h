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

// What is done around the start of the program; each is given its process's id.
struct StartSteps {
    // In the new process, right before the start: returns the environment. What it throws, run_program
    // throws.
    std::function<std::vector<std::string>(int pid)> prepare;
    // In the new process, when the start fails behind that.
    std::function<void(int pid)> take_back;
    // In this process, once the program runs: only now there may be threads.
    std::function<void(int pid)> begin;
};

// Starts `path` with `command` as its arguments and waits for its end. Meanwhile signals of the terminal
// reach the program alone, and SIGTERM, SIGHUP, SIGINT and SIGQUIT that somebody sends to the launcher are
// passed on. Throws Failure when the program cannot be started.
Ending run_program(const std::string& path, const std::vector<std::string>& command, const StartSteps& steps);

// Has a pipe or a file that this process opens never become one of its standard streams, where those are
// closed; the program finds them closed all the same. And a reader of standard error that leaves ends nothing
// here.
void guard_standard_streams();

// Ends this process as the program ended: with its status or by its signal.
[[noreturn]] void end_like(const Ending& ending);

}  // namespace memrun
