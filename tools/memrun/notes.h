// What the agents of the tracked processes wrote down for the launcher (contract.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace memrun {

struct ProcessNote {
    std::string word;     // middle word of the process's report files
    std::string program;  // path of its executable
    int pid = 0;
    std::string foreign_allocator;  // object that serves malloc in place of the tracked allocator; else empty
    bool was_alone = false;         // no launcher answered
    bool met_silence = false;       // the launcher stopped answering
    std::string unbound_object;     // first one that was opened without its RTLD_DEEPBIND; else empty
    bool has_refusal = false;       // an allocation failed
    bool began_anew = false;        // the tables did, by an order
    std::uint64_t refused_bytes = 0;  // 0: not known
    bool has_stats = false;           // the process-wide counters moved
    std::int64_t current_bytes = 0;
    std::int64_t current_blocks = 0;
    std::int64_t peak_bytes = 0;
    bool is_forked = false;            // a child that was forked, not a program that was started
    std::int64_t inherited_bytes = 0;  // what such a child began with
    bool has_left = false;             // it put a program in its place that is not tracked
    std::vector<int> children;         // that there were when it ended
    std::string ended;  // "exit", the number of a signal, or empty when no reports were written
};

// Reads the notes below the output folder and removes them. The launched program's comes first.
std::vector<ProcessNote> take_notes(const std::string& output, const std::string& launched_word);

}  // namespace memrun
