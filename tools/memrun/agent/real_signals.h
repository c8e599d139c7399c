// The C library's own calls, behind those that signal_view.cpp puts in front of them.
#pragma once

#include <csignal>

namespace memrun::agent {

int real_sigaction(int signo, const struct sigaction* action, struct sigaction* old);

}  // namespace memrun::agent
