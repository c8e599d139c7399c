#include "tools/memrun/reasons.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstring>

#include "mem/attribution/filtered_modules.h"
#include "platform/module_name.h"
#include "tools/memrun/names/package_hint.h"
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
    return "No reports: the program put one in its place by exec that cannot be tracked, left without its "
           "exit "
           "actions, or could no longer write to the folder.";
}

// Empty when there are figures to read.
std::string why_no_figures(const Run& run, const Figures& figures) {
    if (run.notes.empty())
        return "No reports: the tracker was not loaded. Something between here and the program cleared "
               "LD_PRELOAD.";
    const ProcessNote& first = run.notes.front();
    if (first.ended.empty() && run.aftermath.any_report)
        return "The call paths are those of the last event; the program wrote no other reports.";
    if (!figures.has_files && first.ended.empty()) return why_no_reports(run.ending);
    if (!figures.cut_file.empty())
        return figures.cut_file + " is cut, so that no figures are shown. " +
               (first.has_refusal ? "Memory had run out." : "Was the disk full?");
    if (!first.foreign_allocator.empty())
        return "The program brings its own allocator (" + first.foreign_allocator +
               "), which nobody can track.";
    if (figures.has_totals && figures.cumulative_blocks == 0)
        return "No allocation was seen: the program has an allocator of its own linked in, or what it "
               "started did the work (--follow-children tracks that, too).";
    return "";
}

bool is_over_half(std::int64_t part, std::int64_t whole) {
    return part > whole / 2;
}

// Empty when most bytes have a call site.
std::string why_no_call_sites(const Run& run, const Figures& figures, const Options& options) {
    if (!is_over_half(figures.unattributed_bytes, figures.cumulative_bytes) &&
        !is_over_half(figures.unattributed.bytes, figures.whole_bytes))
        return "";
    const std::string_view module = module_base_name(run.notes.front().program);
    if (mem_module_name_is_filtered(module))
        return "Frames of a module called '" + std::string(module) +
               "' are never held responsible: run a copy of the program under another name.";
    if (options.unknown_lines)
        return "Most bytes have no call site, since the frames have not so much as a name: install the "
               "symbols.";
    return "Most bytes have no call site, since the frames have no debug information: leave out "
           "--no-unknown-lines, or install the debug symbols.";
}

std::string percent_text(std::int64_t part, std::int64_t whole) {
    const std::int64_t percent = (part * 200 + whole) / (2 * whole);
    return part > 0 && percent == 0 ? "less than 1 %" : std::to_string(percent) + " %";
}

// The files of the modules that hold at least a twentieth of the bytes without lines, largest first.
std::vector<std::string> files_without_lines(const Run& run, const Figures& figures) {
    std::vector<std::pair<std::int64_t, std::string>> found;
    const std::int64_t all = figures.bytes_with_functions + figures.bytes_with_modules;
    for (const std::string& path : run.modules) {
        const auto module = figures.bytes_without_lines.find(std::string(module_base_name(path)));
        if (module != figures.bytes_without_lines.end() && module->second * 20 >= all)
            found.emplace_back(-module->second, path);
    }
    std::ranges::sort(found);
    std::vector<std::string> paths;
    paths.reserve(found.size());
    for (auto& [bytes, path] : found) paths.push_back(std::move(path));
    return paths;
}

std::string joined(const std::vector<std::string>& words, const std::string& ending) {
    constexpr std::size_t most = 3;
    std::string text;
    for (std::size_t i = 0; i < std::min(words.size(), most); ++i)
        text += (i > 0 ? ", " : "") + words[i] + ending;
    return words.size() > most ? text + " and others" : text;
}

std::string remedy_for(const std::vector<std::string>& files) {
    if (files.empty()) return "";
    const std::vector<std::string> packages = names::packages_of(files);
    if (packages.empty()) return " No debug information: " + joined(files, "") + ".";
    return " For the rest install the debug symbols: " + joined(packages, "-dbgsym") + " (or -dbg).";
}

// Empty when next to all bytes have lines.
std::string names_text(const Run& run, const Figures& figures) {
    const std::int64_t whole =
        figures.bytes_with_lines + figures.bytes_with_functions + figures.bytes_with_modules;
    if (whole <= 0 || (whole - figures.bytes_with_lines) * 100 < whole) return "";
    std::string text = percent_text(figures.bytes_with_lines, whole) + " of the bytes have file and line";
    if (figures.bytes_with_functions > 0)
        text += ", " + percent_text(figures.bytes_with_functions, whole) + " only a function";
    if (figures.bytes_with_modules > 0)
        text += ", " + percent_text(figures.bytes_with_modules, whole) + " only a module";
    return text + "." + remedy_for(files_without_lines(run, figures));
}

std::string survivors_text(const std::vector<Survivor>& survivors, const Options& options) {
    if (survivors.empty()) return "";
    constexpr std::size_t most = 3;
    std::string text = "Still running: ";
    for (std::size_t i = 0; i < survivors.size() && i < most; ++i)
        text += (i > 0 ? ", " : "") + survivors[i].name + " (" + std::to_string(survivors[i].pid) + ")";
    if (survivors.size() > most) text += " and " + std::to_string(survivors.size() - most) + " more";
    text += ", whose memory is in no figure here.";
    if (std::ranges::any_of(survivors, &Survivor::is_fork))
        return text + " A forked child goes on untracked: --follow-forks tracks it.";
    if (options.follow_children) return text + " Their reports follow when they end.";
    return text + " --follow-children tracks programs that are started.";
}

std::string unbound_text(const std::vector<ProcessNote>& notes) {
    for (const ProcessNote& note : notes)
        if (!note.unbound_object.empty())
            return note.unbound_object +
                   " asked for its own symbols first (RTLD_DEEPBIND), which would have bound it to another "
                   "allocator: it was loaded without that.";
    return "";
}

std::string silence_text(const std::vector<ProcessNote>& notes) {
    if (std::ranges::none_of(notes,
                             [](const ProcessNote& note) { return note.was_alone || note.met_silence; }))
        return "";
    return "Code was named inside the program, since nobody answered it here for a second.";
}

std::string deficit_text(const Figures& figures) {
    if (!figures.has_totals || (figures.current_bytes >= 0 && figures.current_blocks >= 0)) return "";
    return "Less than nothing is not freed: blocks came off that the tracker had not seen allocated.";
}

std::string inherited_text(const std::vector<ProcessNote>& notes) {
    std::int64_t children = 0;
    std::int64_t bytes = 0;
    for (const ProcessNote& note : notes) {
        children += note.is_forked ? 1 : 0;
        bytes += note.inherited_bytes;
    }
    if (children == 0) return "";
    return count_text(children) + " forked " + (children == 1 ? "child" : "children") +
           " began with what was held at the fork, " + bytes_text(bytes) +
           " in all, which counts in each again.";
}

std::string anew_text(const std::vector<ProcessNote>& notes) {
    const bool any =
        std::any_of(notes.begin(), notes.end(), [](const ProcessNote& note) { return note.began_anew; });
    return any ? "The reports began anew by an order: what was allocated before it is not in them." : "";
}

}  // namespace

std::string describe_ending(const Ending& ending, const std::vector<ProcessNote>& notes,
                            const control::LastLook& look) {
    std::string text = end_text(ending) + " after " + seconds_text(ending.seconds);
    if (!failed(ending)) return text;
    if (WIFSIGNALED(ending.wait_status) && WTERMSIG(ending.wait_status) == SIGKILL &&
        look.is_killed_for_memory)
        return text + " by the kernel's out-of-memory killer" +
               (look.cgroup.empty() ? "" : " of " + look.cgroup);
    for (const ProcessNote& note : notes)
        if (note.has_refusal) return text + "; it ran out of memory" + refusal_text(note);
    return text;
}

std::vector<std::string> remarks(const Run& run, const Figures& figures, const Options& options) {
    std::vector<std::string> all = {why_no_figures(run, figures)};
    if (all.front().empty() && figures.has_totals)
        all = {why_no_call_sites(run, figures, options), deficit_text(figures), names_text(run, figures)};
    all.push_back(unbound_text(run.notes));
    all.push_back(silence_text(run.notes));
    all.push_back(anew_text(run.notes));
    all.push_back(inherited_text(run.notes));
    all.push_back(survivors_text(run.survivors, options));
    std::erase(all, "");
    return all;
}

}  // namespace memrun
