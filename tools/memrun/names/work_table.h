// What a namer is working at, in memory that outlives it: a file that ends the namer is then known to the
// next.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace memrun::names {

// How much of a module may be read.
enum class Trust {
    everything,    // its debug information
    symbols_only,  // its own symbol table; its debug information ended a namer twice
    nothing        // that, too
};

// Zeroed memory is an empty table.
class WorkTable {
  public:
    // Around the reading of a module's files.
    void begin(const std::string& module);
    void end() { in_work_.store(0); }

    // In the launcher, after a namer has died in its work.
    void note_death();

    Trust trust_in(const std::string& module) const;

    // Counts what the launcher sent the namer, its end included: the namer looks only when it has changed.
    std::atomic<std::uint32_t> words_to_namer;

  private:
    struct Entry {
        std::atomic<std::uint64_t> module;
        std::atomic<std::uint32_t> deaths;
    };
    std::atomic<std::uint64_t> in_work_;
    std::array<Entry, 64> entries_;
};

}  // namespace memrun::names
