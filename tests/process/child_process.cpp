#include "tests/process/child_process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

namespace fs = std::filesystem;

std::string content_of(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::vector<char*> pointers_to(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

// In the child, between fork and exec: system calls only.
[[noreturn]] void become(const RUN& run, const fs::path& folder, char* const* arguments,
                         char* const* environment) {
    const auto redirect = [](const fs::path& path, int descriptor) {
        dup2(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), descriptor);
    };
    redirect(folder / "stdout", STDOUT_FILENO);
    redirect(folder / "stderr", STDERR_FILENO);
    if (run.standard_error_closed) close(STDERR_FILENO);
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    const rlimit space = {run.address_space, run.address_space};
    if (run.address_space != 0) setrlimit(RLIMIT_AS, &space);
    if (chdir((folder / "work").c_str()) == 0) execve(arguments[0], arguments, environment);
    _exit(127);
}

// The status that waitpid gives, after at most a minute.
int wait_for(pid_t child, bool& timed_out) {
    constexpr auto patience = std::chrono::minutes(1);
    const auto end = std::chrono::steady_clock::now() + patience;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > end) {
            timed_out = true;
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return status;
}

}  // namespace

std::string ENDING::how() const {
    if (timed_out) return "hang";
    return signal != 0 ? "signal " + std::to_string(signal) : "exit " + std::to_string(exit_code);
}

ENDING run_program(const RUN& run) {
    std::string name = (fs::temp_directory_path() / "ktl_mem_XXXXXX").string();
    const fs::path folder = mkdtemp(name.data());
    fs::create_directory(folder / "work");
    std::vector<std::string> variables = run.environment;
    for (char** variable = environ; *variable != nullptr; ++variable) variables.emplace_back(*variable);
    const auto arguments = pointers_to(run.command);
    const auto environment = pointers_to(variables);
    const pid_t child = fork();
    if (child == 0) become(run, folder, arguments.data(), environment.data());
    ENDING ending;
    const int status = wait_for(child, ending.timed_out);
    if (WIFEXITED(status)) ending.exit_code = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) ending.signal = WTERMSIG(status);
    ending.output = content_of(folder / "stdout");
    ending.error = content_of(folder / "stderr");
    for (const auto& file : fs::directory_iterator(folder / "work")) {
        ending.files[file.path().filename().string()] = content_of(file.path());
    }
    fs::remove_all(folder);
    return ending;
}

std::string with_allocator() {
    return std::string("LD_PRELOAD=") + TCMALLOC_MINIMAL;
}
