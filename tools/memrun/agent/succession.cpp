// exec in front of the C library's: the program that takes this one's place is tracked in its stead, where
// that can be. A child that execs is left alone.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/memrun/agent/forked_child.h"
#include "tools/memrun/agent/inheritance.h"

#define MEMRUN_IN_FRONT extern "C" __attribute__((visibility("default")))

namespace memrun::agent {

namespace {

using Exec = int(const char*, char* const*, char* const*);

struct Real {
    Exec* at_path = reinterpret_cast<Exec*>(dlsym(RTLD_NEXT, "execve"));
    Exec* in_path = reinterpret_cast<Exec*>(dlsym(RTLD_NEXT, "execvpe"));
    int (*at_file)(int, char* const*,
                   char* const*) = reinterpret_cast<decltype(at_file)>(dlsym(RTLD_NEXT, "fexecve"));
    int (*at_folder)(int, const char*, char* const*, char* const*,
                     int) = reinterpret_cast<decltype(at_folder)>(dlsym(RTLD_NEXT, "execveat"));
};

const Real& real() {
    static const Real functions;
    return functions;
}

// A child may be forked while another thread holds the loader's lock.
[[maybe_unused]] const Real& looked_up_early = real();

// A file that is given by its descriptor has an empty path.
int open_at(int folder, const char* path, int flags) {
    if (*path == 0 && (flags & AT_EMPTY_PATH) != 0) return fcntl(folder, F_DUPFD_CLOEXEC, 0);
    return openat(folder, path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

int open_executable(const char* path) {
    return open_at(AT_FDCWD, path, 0);
}

// The file that the shell's rules find; a name with a slash is a path.
int open_in_path(const char* name) {
    const char* folders = std::getenv("PATH");
    if (std::strchr(name, '/') != nullptr) return open_executable(name);
    if (folders == nullptr) folders = "/bin:/usr/bin";
    for (;;) {
        const int length = static_cast<int>(std::strcspn(folders, ":"));
        char path[PATH_MAX];
        std::snprintf(path, sizeof path, "%.*s/%s", length, length == 0 ? "." : folders, name);
        if (access(path, X_OK) == 0) return open_executable(path);
        if (folders[length] == 0) return -1;
        folders += length + 1;
    }
}

char* const* or_none(char* const* entries) {
    static char* const none[] = {nullptr};
    return entries == nullptr ? none : entries;
}

// `file` is what `exec` is going to run, or -1 where nobody is to inherit; it is closed.
template <class RunWith>
int pass_on(int file, char* const* environment, RunWith run) {
    const int saved_errno = errno;
    const bool is_inherited = can_inherit(file);
    if (file >= 0) close(file);
    errno = saved_errno;
    if (is_inherited) {
        const HeirEnvironment heirs(or_none(environment));
        return run(heirs.get());
    }
    note_exec_of_child(true);
    const int result = run(environment);
    note_exec_of_child(false);
    return result;
}

int run_at_path(const char* path, char* const* arguments, char* const* environment) {
    return pass_on(has_heir() ? open_executable(path) : -1, environment,
                   [&](char* const* entries) { return real().at_path(path, arguments, entries); });
}

int run_in_path(const char* name, char* const* arguments, char* const* environment) {
    return pass_on(has_heir() ? open_in_path(name) : -1, environment,
                   [&](char* const* entries) { return real().in_path(name, arguments, entries); });
}

// Runs with the arguments of a call's own list, up to the null, which stand on the stack meanwhile.
template <class RunWith>
int with_arguments(const char* first, std::va_list& list, RunWith run) {
    std::va_list counted;
    va_copy(counted, list);
    std::size_t count = 1;
    for (const char* argument = first; argument != nullptr; ++count) argument = va_arg(counted, const char*);
    va_end(counted);
    auto** const arguments = static_cast<char**>(__builtin_alloca(count * sizeof(char*)));
    arguments[0] = const_cast<char*>(first);
    for (std::size_t i = 1; i < count; ++i) arguments[i] = va_arg(list, char*);
    return run(arguments);
}

}  // namespace

}  // namespace memrun::agent

using namespace memrun::agent;

MEMRUN_IN_FRONT int execve(const char* path, char* const* arguments, char* const* environment) noexcept {
    return run_at_path(path, arguments, environment);
}

MEMRUN_IN_FRONT int execv(const char* path, char* const* arguments) noexcept {
    return run_at_path(path, arguments, environ);
}

MEMRUN_IN_FRONT int execvpe(const char* name, char* const* arguments, char* const* environment) noexcept {
    return run_in_path(name, arguments, environment);
}

MEMRUN_IN_FRONT int execvp(const char* name, char* const* arguments) noexcept {
    return run_in_path(name, arguments, environ);
}

MEMRUN_IN_FRONT int fexecve(int file, char* const* arguments, char* const* environment) noexcept {
    return pass_on(has_heir() ? open_at(file, "", AT_EMPTY_PATH) : -1, environment,
                   [&](char* const* entries) { return real().at_file(file, arguments, entries); });
}

MEMRUN_IN_FRONT int execveat(int folder, const char* path, char* const* arguments, char* const* environment,
                             int flags) noexcept {
    return pass_on(has_heir() ? open_at(folder, path, flags) : -1, environment, [&](char* const* entries) {
        return real().at_folder(folder, path, arguments, entries, flags);
    });
}

MEMRUN_IN_FRONT int execl(const char* path, const char* argument, ...) noexcept {
    std::va_list list;
    va_start(list, argument);
    const int result = with_arguments(
        argument, list, [&](char* const* arguments) { return run_at_path(path, arguments, environ); });
    va_end(list);
    return result;
}

MEMRUN_IN_FRONT int execlp(const char* name, const char* argument, ...) noexcept {
    std::va_list list;
    va_start(list, argument);
    const int result = with_arguments(
        argument, list, [&](char* const* arguments) { return run_in_path(name, arguments, environ); });
    va_end(list);
    return result;
}

// The environment stands behind the arguments.
MEMRUN_IN_FRONT int execle(const char* path, const char* argument, ...) noexcept {
    std::va_list list;
    va_start(list, argument);
    const int result = with_arguments(argument, list, [&](char* const* arguments) {
        return run_at_path(path, arguments, va_arg(list, char* const*));
    });
    va_end(list);
    return result;
}
