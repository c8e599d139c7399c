#include "tools/memrun/summary.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "tools/common/display_text.h"
#include "tools/common/harmless.h"
#include "tools/common/readable_names.h"
#include "tools/common/shell_word.h"
#include "tools/memrun/figures.h"
#include "tools/memrun/reasons.h"
#include "tools/memrun/units.h"

namespace memrun {

namespace {

constexpr std::size_t most_sites = 3;
constexpr std::size_t widest_function = 60;
constexpr std::size_t widest_place = 40;
constexpr std::size_t widest_text = 200;
constexpr std::size_t least_width = 40;
constexpr std::size_t least_names = 20;   // for place and function together
constexpr std::size_t widest_bytes = 10;  // of "1023.9 KiB"

class Lines {
  public:
    static constexpr std::size_t indent = 12;

    explicit Lines(bool with_colour) : with_colour_(with_colour) {}

    void add(const std::string& label, const std::string& text) {
        const std::string shown = with_colour_ ? "\033[1m" + label + "\033[0m" : label;
        text_ += shown + std::string(label.size() < indent ? indent - label.size() : 1, ' ') +
                 harmless(text) + "\n";
    }
    const std::string& text() const { return text_; }

  private:
    bool with_colour_;
    std::string text_;
};

std::string count_of(std::int64_t count, const std::string& noun) {
    return count_text(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string blocks_text(std::int64_t bytes, std::int64_t blocks) {
    return bytes_text(bytes) + " in " + count_of(blocks, "block");
}

void add_processes(Lines& lines, const std::vector<ProcessNote>& notes) {
    const auto with_reports = std::count_if(notes.begin(), notes.end(),
                                            [](const ProcessNote& note) { return !note.ended.empty(); });
    const bool any_fork = std::ranges::any_of(notes, &ProcessNote::is_forked);
    lines.add("tracked",
              count_of(static_cast<std::int64_t>(notes.size()), any_fork ? "processe" : "program") + ", " +
                  count_text(with_reports) + " left reports");
}

void add_totals(Lines& lines, const Figures& figures, const std::vector<ProcessNote>& notes) {
    if (figures.has_totals)
        lines.add("allocated", blocks_text(figures.cumulative_bytes, figures.cumulative_blocks));
    if (figures.has_totals)
        lines.add("not freed", blocks_text(figures.current_bytes, figures.current_blocks));
    else if (figures.has_leaks)
        lines.add("not freed", bytes_text(figures.leaked_bytes));
    else if (!notes.empty() && notes.front().has_stats)
        lines.add("not freed", blocks_text(notes.front().current_bytes, notes.front().current_blocks));
}

std::string moment_of_peak(const Figures& figures) {
    if (figures.peak_is_exact)
        return " after " + seconds_text(static_cast<double>(figures.peak_milliseconds) / 1000);
    return " at sampling index " + std::to_string(figures.peak_index);
}

void add_peak(Lines& lines, const Figures& figures, const std::vector<ProcessNote>& notes) {
    if (figures.has_peak)
        lines.add(figures.peak_is_sample ? "top sample" : "peak",
                  bytes_text(figures.peak_bytes) + moment_of_peak(figures) +
                      (notes.size() > 1 ? " of " + figures.peak_word : ""));
    else if (!notes.empty() && notes.front().has_stats)
        lines.add("peak", bytes_text(notes.front().peak_bytes));
}

std::string shortened_function(const std::string& whole, std::size_t most) {
    std::string function = readable::name(whole);
    if (display::width(function) <= most) return function;
    return function.substr(0, display::bytes_within(function, most - 3)) + "...";
}

// Columns that standard error has for what stands behind the label; many when it is no terminal.
std::size_t room_for_text() {
    winsize size{};
    const bool is_terminal = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return is_terminal ? std::max<std::size_t>(size.ws_col, least_width) - Lines::indent : widest_text;
}

// The end of a path says more than its beginning.
std::string shortened_place(const std::string& place, std::size_t most) {
    if (display::width(place) <= most) return place;
    const std::size_t tail = display::bytes_before_last(place, most - 3);
    const std::size_t slash = place.find('/', tail);
    return "..." + place.substr(slash == std::string::npos ? tail : slash);
}

// Empty for less than a hundredth, which is not worth a line.
std::string share_text(std::int64_t bytes, std::int64_t whole) {
    const std::int64_t hundredth = whole / 100;
    if (hundredth <= 0 || bytes < hundredth) return "";
    return std::to_string(bytes / hundredth) + " % have no call site";
}

void add_sites(Lines& lines, const Figures& figures) {
    std::vector<CallSite> sites = figures.top_sites;
    CallSite unattributed = figures.unattributed;
    unattributed.function = share_text(unattributed.bytes, figures.whole_bytes);
    if (!unattributed.function.empty()) sites.push_back(unattributed);
    std::ranges::stable_sort(sites, std::greater(), &CallSite::bytes);
    std::size_t width = 0;
    for (const CallSite& site : sites) width = std::max(width, blocks_text(site.bytes, site.blocks).size());
    std::string label = figures.has_peak ? "top at peak" : "top";
    const std::size_t room = room_for_text();
    const bool has_room = room >= width + least_names;
    if (!has_room) width = widest_bytes;
    for (const CallSite& site : sites) {
        std::string sizes = has_room ? blocks_text(site.bytes, site.blocks) : bytes_text(site.bytes);
        sizes.resize(width + 2, ' ');
        const std::size_t left = room - sizes.size();
        const std::string place = shortened_place(site.place, std::min(widest_place, left / 2)) + "  ";
        lines.add(label, sizes + place +
                             shortened_function(site.function,
                                                std::min(widest_function, left - display::width(place))));
        label.clear();
    }
}

// Against which limit, and who held the memory: with the line above, five that say all.
void add_aftermath(Lines& lines, const Run& run) {
    const control::MemoryRoom& room = run.last_look.room;
    const control::Held& held = run.aftermath.held;
    if (!run.aftermath.any_report) return;
    lines.add("limit", room.limit_name.empty()
                           ? "none was near"
                           : std::to_string(room.percent) + " % of " + room.limit_name + ", " +
                                 bytes_text(static_cast<std::int64_t>(room.limit)) +
                                 ", were used shortly before");
    lines.add("held", blocks_text(held.bytes, held.blocks) + ", at most " + bytes_text(held.peak_bytes));
    std::string label = "top";
    for (const control::HeldSite& site : held.sites) {
        lines.add(label, blocks_text(site.bytes, site.blocks) + "  " +
                             shortened_place(site.place, widest_place) + "  " +
                             shortened_function(site.function, widest_function));
        label.clear();
    }
}

// What is left of a run that could not write its reports.
void add_checkpoint(Lines& lines, const Run& run) {
    const std::uint64_t age_ms = run.last_look.checkpoint_age_ms;
    if (age_ms == 0 || ended_with_reports(run.notes)) return;
    lines.add("checkpoint", "of " + seconds_text(static_cast<double>(age_ms) / 1000) +
                                " before the end, in " + run.output + "/checkpoint");
}

}  // namespace

bool ended_with_reports(const std::vector<ProcessNote>& notes) {
    return !notes.empty() && std::none_of(notes.begin(), notes.end(),
                                          [](const ProcessNote& note) { return note.ended.empty(); });
}

std::string summary_text(const Run& run, const Options& options, bool with_colour) {
    const Figures figures = read_figures(run.output, most_sites);
    Lines lines(with_colour);
    lines.add("ktl_memrun:", run.program_name + " " + describe_ending(run.ending, run.notes, run.last_look));
    add_aftermath(lines, run);
    if (options.follow_children || options.follow_forks) add_processes(lines, run.notes);
    if (figures.cut_file.empty()) {
        add_totals(lines, figures, run.notes);
        add_peak(lines, figures, run.notes);
        add_sites(lines, figures);
    }
    for (const std::string& remark : remarks(run, figures, options)) lines.add("note", remark);
    add_checkpoint(lines, run);
    if (figures.has_files)
        lines.add("next",
                  "ktl_memview show " + shell_word(run.output) + ", or ktl_memview html for the page");
    return lines.text();
}

bool takes_colour() {
    const char* no_colour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    if (no_colour != nullptr && *no_colour != 0) return false;
    return isatty(STDERR_FILENO) != 0 && (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

}  // namespace memrun
