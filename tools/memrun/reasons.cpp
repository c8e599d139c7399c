#include "tools/memrun/reasons.h"

#include <sys/wait.h>

#include <csignal>
#include <cstring>

#include "tools/memrun/units.h"

namespace memrun {

namespace {

std::string signal_text(int signo) {
    const char* abbreviation = sigabbrev_np(signo);
    const std::string name =
        abbreviation != nullptr ? std::string("SIG") + abbreviation : std::to_string(signo);
    return name + " (" + strsignal(signo) + ")";
}

bool failed(const Ending& ending) {
    return !WIFEXITED(ending.wait_status) || WEXITSTATUS(ending.wait_status) != 0;
}

bool was_killed_by_fault(int signo) {
    return signo == SIGSEGV || signo == SIGBUS || signo == SIGFPE || signo == SIGILL || signo == SIGABRT;
}

std::string end_text(const Ending& ending) {
    if (WIFEXITED(ending.wait_status))
        return "ended with status " + std::to_string(WEXITSTATUS(ending.wait_status));
    const int signo = WTERMSIG(ending.wait_status);
    return (was_killed_by_fault(signo) ? "died of a fault: " : "was ended by ") + signal_text(signo);
}

std::string refusal_text(const ProcessNote& note) {
    if (note.refused_bytes == 0) return "";
    return ": an allocation of " + bytes_text(static_cast<std::int64_t>(note.refused_bytes)) + " failed";
}

std::string why_no_reports(const Ending& ending) {
    if (WIFSIGNALED(ending.wait_status)) {
        const int signo = WTERMSIG(ending.wait_status);
        if (signo == SIGKILL)
            return "No reports: SIGKILL leaves a program no time to write them. The kernel sends it when the "
                   "machine runs out of memory.";
        return "No reports: " + signal_text(signo) +
               " ended the program at once, before they could be written.";
    }
    return "No reports: the program put another one in its place by exec (--follow-children tracks that one, "
           "too), left without its exit actions, or could no longer write to the folder.";
}

}  // namespace

std::string describe_ending(const Ending& ending, const std::vector<ProcessNote>& notes) {
    std::string text = end_text(ending) + " after " + seconds_text(ending.seconds);
    if (!failed(ending)) return text;
    for (const ProcessNote& note : notes)
        if (note.has_refusal) return text + "; it ran out of memory" + refusal_text(note);
    return text;
}

std::string explain_emptiness(const Ending& ending, const std::vector<ProcessNote>& notes,
                              const Figures& figures, const Options& options) {
    if (notes.empty())
        return "No reports: the tracker was not loaded. Something between here and the program cleared "
               "LD_PRELOAD.";
    if (!figures.has_files && notes.front().ended.empty()) return why_no_reports(ending);
    if (!figures.cut_file.empty())
        return figures.cut_file + " is cut, so that no figures are told. Was the disk full?";
    if (!notes.front().foreign_allocator.empty())
        return "The program brings its own allocator (" + notes.front().foreign_allocator +
               "), which nobody can track.";
    if (!figures.has_totals) return "";
    if (figures.cumulative_blocks == 0)
        return "No allocation was seen: the program has an allocator of its own linked in, or what it "
               "started did "
               "the work (--follow-children tracks that, too).";
    if (figures.unattributed_bytes < figures.cumulative_bytes) return "";
    if (options.unknown_lines)
        return "No frame has so much as a name: the program is stripped; install its symbols.";
    return "No frame has debug information: leave out --no-unknown-lines, or install the debug symbols.";
}

}  // namespace memrun
