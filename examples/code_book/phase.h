// A phase of the run, from construction to destruction, as a profile bin.
#pragma once

#include <string>

namespace code_book {

class Phase {
  public:
    // A phase with a tag charges its memory to that tag, and its name becomes the label of the timelines.
    // A phase without one is a step inside the phase around it.
    explicit Phase(const std::string& name, const std::string& tag = "");
    // Prints what the phase left allocated and how high it went.
    ~Phase();
    Phase(const Phase&) = delete;
    Phase& operator=(const Phase&) = delete;

  private:
    std::string name_;
    std::string tag_;
};

}  // namespace code_book
