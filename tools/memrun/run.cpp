#include "tools/memrun/run.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "platform/kept_errno.h"
#include "tools/memrun/failure.h"

namespace memrun {

namespace {

constexpr std::array<int, 4> passed_on = {SIGTERM, SIGHUP, SIGINT, SIGQUIT};

volatile std::sig_atomic_t program_pid = 0;

// What the terminal sends goes to the whole foreground group, so the program has it already.
void pass_on(int signo, siginfo_t* info, void*) {
    const KEPT_ERRNO errno_is_kept;
    if (info->si_code != SI_KERNEL && program_pid > 0) kill(program_pid, signo);
}

// As found at the start; the program gets it back.
struct sigaction pipe_action_found;

// The launcher's own dispositions while the program runs; the program must start with those that were found.
class SignalRelay {
  public:
    SignalRelay() {
        sigemptyset(&blocked_);
        for (const int signo : passed_on) sigaddset(&blocked_, signo);
        sigprocmask(SIG_BLOCK, &blocked_, &found_mask_);
    }
    ~SignalRelay() { sigprocmask(SIG_SETMASK, &found_mask_, nullptr); }
    SignalRelay(const SignalRelay&) = delete;
    SignalRelay& operator=(const SignalRelay&) = delete;

    void restore_in_child() const {
        sigaction(SIGPIPE, &pipe_action_found, nullptr);
        sigprocmask(SIG_SETMASK, &found_mask_, nullptr);
    }

    // From here on signals that came since the start are passed on, too, also those that were ignored: what
    // they mean is the program's to decide, which has the dispositions that were found.
    void begin(int pid) {
        program_pid = pid;
        struct sigaction action = {};
        action.sa_sigaction = pass_on;
        action.sa_flags = SA_SIGINFO | SA_RESTART;
        for (const int signo : passed_on) sigaction(signo, &action, nullptr);
        sigprocmask(SIG_SETMASK, &found_mask_, nullptr);
    }

  private:
    sigset_t blocked_;
    sigset_t found_mask_;
};

std::vector<char*> pointers_to(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// What a process that could not become the program sends its launcher, through a pipe that the start closes.
struct Refusal {
    int status;
    char sentence[4096];
};

void send_refusal(int fd, int status, const std::string& sentence) {
    Refusal refusal = {status, {}};
    sentence.copy(refusal.sentence, sizeof refusal.sentence - 1);
    const ssize_t ignored = write(fd, &refusal, sizeof refusal);
    static_cast<void>(ignored);
}

[[noreturn]] void become_program(const std::string& path, const std::vector<std::string>& command,
                                 const StartSteps& steps, const SignalRelay& relay, int refusals) {
    try {
        const std::vector<std::string> environment = steps.prepare(getpid());
        relay.restore_in_child();
        execvpe(path.c_str(), pointers_to(command).data(), pointers_to(environment).data());
        const std::string reason = std::strerror(errno);
        steps.take_back(getpid());
        send_refusal(refusals, status_cannot_run, "cannot run '" + path + "': " + reason);
    } catch (const Failure& failure) {
        send_refusal(refusals, failure.status, failure.what());
    } catch (const std::exception& error) {
        send_refusal(refusals, status_launcher_fault, error.what());
    }
    _exit(status_launcher_fault);
}

void throw_refusal(int fd, int pid) {
    Refusal refusal;
    ssize_t size;
    do size = read(fd, &refusal, sizeof refusal);
    while (size < 0 && errno == EINTR);
    close(fd);
    if (size <= 0) return;
    waitpid(pid, nullptr, 0);
    throw Failure(static_cast<ExitStatus>(refusal.status), refusal.sentence);
}

}  // namespace

void guard_standard_streams() {
    int file;
    do file = open("/dev/null", O_RDWR | O_CLOEXEC);
    while (file >= 0 && file <= STDERR_FILENO);
    if (file >= 0) close(file);
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &pipe_action_found);
}

Ending run_program(const std::string& path, const std::vector<std::string>& command,
                   const StartSteps& steps) {
    int refusals[2];
    if (pipe2(refusals, O_CLOEXEC) != 0)
        throw Failure(status_launcher_fault, std::string("cannot make a pipe: ") + std::strerror(errno));
    SignalRelay relay;
    const auto start = std::chrono::steady_clock::now();
    const int pid = fork();
    if (pid < 0)
        throw Failure(status_launcher_fault, std::string("cannot start a process: ") + std::strerror(errno));
    if (pid == 0) become_program(path, command, steps, relay, refusals[1]);
    close(refusals[1]);
    relay.begin(pid);
    throw_refusal(refusals[0], pid);
    steps.begin(pid);
    Ending ending{pid, 0, 0};
    while (waitpid(pid, &ending.wait_status, 0) < 0 && errno == EINTR) {
    }
    program_pid = 0;
    ending.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return ending;
}

void end_like(const Ending& ending) {
    if (WIFEXITED(ending.wait_status)) std::exit(WEXITSTATUS(ending.wait_status));
    const int signo = WTERMSIG(ending.wait_status);
    const rlimit no_core = {0, 0};  // the program has left its own
    setrlimit(RLIMIT_CORE, &no_core);
    std::signal(signo, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signo);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
    raise(signo);
    std::exit(128 + signo);
}

}  // namespace memrun
