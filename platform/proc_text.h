// The texts of /proc that the memory figures come from, as pure functions over text. Nothing allocates.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

// One figure to look for: the key with its colon at the start of a line, and the value in bytes, 0 until the
// key has been seen.
struct PROC_FIGURE {
    std::string_view key;
    std::uint64_t bytes = 0;
};

// The bytes of a value such as "   123 kB", the highest number there is when they are more; 0 without a
// number.
std::uint64_t proc_kilobytes(std::string_view text);

// Reads lines of the form "Key:   123 kB" that arrive in pieces of any length. A line longer than the
// buffer is skipped as a whole, for the list of groups of a process has no bound. A number that does not fit
// counts as the highest that does.
class PROC_KEY_READER {
  public:
    explicit PROC_KEY_READER(std::span<PROC_FIGURE> wanted) : figures(wanted) {}
    void feed(std::string_view piece);

  private:
    void take_line();

    std::span<PROC_FIGURE> figures;
    char line[128];
    std::size_t length = 0;
    bool too_long = false;
};

// Minor and major faults of the process itself out of the one line of /proc/PID/stat; no value when the text
// is not of that form. The name of the program in it may hold any character, closing brackets too.
std::optional<std::uint64_t> proc_stat_page_faults(std::string_view stat);
