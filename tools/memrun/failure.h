// How the launcher fails: with a sentence for the user and the exit status that env, nice and timeout use,
// too.
#pragma once

#include <stdexcept>
#include <string>

namespace memrun {

enum ExitStatus : int { status_launcher_fault = 125, status_cannot_run = 126, status_not_found = 127 };

class Failure : public std::runtime_error {
  public:
    Failure(ExitStatus exit_status, const std::string& sentence)
        : std::runtime_error(sentence), status(exit_status) {}
    const ExitStatus status;
};

}  // namespace memrun
