#include "tools/memrun/options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <climits>
#include <optional>
#include <string_view>
#include <utility>

namespace memrun {

namespace {

// Beside "mem_tbb_cumulative_blocks_timeline_detailed." and ".log" in the 255 bytes of a file name, with some
// left for a number.
constexpr std::size_t longest_name = 190;

// The parser knows no positional arguments here: what follows the options belongs to the program.
class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_usage(const CLI::App*, std::string) const override {
        return "Usage: ktl_memrun [OPTIONS] [--] PROGRAM [ARG...]\n";
    }
};

// A check whose own description stays out of the help, which names the value already.
CLI::Validator unnamed(CLI::Validator validator) {
    return validator.description("");
}

// The number that text begins with, and what stands behind it; none where it begins with no number that fits.
std::optional<std::pair<std::uint64_t, std::string_view>> split_number(std::string_view text) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{}) return std::nullopt;
    return std::pair(number, std::string_view(stop, end));
}

CLI::Validator whole_number(std::uint64_t least, std::uint64_t most) {
    const auto fault = [least, most](const std::string& text) {
        const auto given = split_number(text);
        if (given && given->second.empty() && given->first >= least && given->first <= most)
            return std::string();
        return "'" + text + "' is no whole number from " + std::to_string(least) + " to " +
               std::to_string(most);
    };
    return {fault, ""};
}

// log2 of what "K", "KB" or "KiB" stands for; -1 when that is no unit.
int log2_of_unit(std::string_view unit) {
    if (unit.empty()) return 0;
    const std::size_t power = std::string_view("KMG").find(unit.front());
    const std::string_view rest = unit.substr(1);
    if (power == std::string_view::npos || (!rest.empty() && rest != "B" && rest != "iB")) return -1;
    return 10 * (static_cast<int>(power) + 1);
}

// Puts bytes in the place of "64K".
CLI::Validator size_in_bytes() {
    const auto convert = [](std::string& text) {
        const auto given = split_number(text);
        const int log2 = given ? log2_of_unit(given->second) : -1;
        if (log2 < 0 || given->first == 0 || given->first > std::uint64_t{INT64_MAX} >> log2)
            return "'" + text + "' is no size: give whole bytes, or K, M or G behind them (64K)";
        text = std::to_string(given->first << log2);
        return std::string();
    };
    return {convert, ""};
}

std::string failure_text(const CLI::App*, const CLI::Error& error) {
    return std::string("ktl_memrun: ") + error.what() + "\nTry 'ktl_memrun --help'.\n";
}

void declare_tracking(CLI::App& app, Options& options) {
    const char* group = "What is tracked (default: --lines --leaks --paths)";
    app.add_flag("--lines", options.lines, "Bytes and blocks of every call site, by file and line")
        ->group(group);
    app.add_flag("--modules", options.modules, "Bytes and blocks of every module, over time")->group(group);
    app.add_flag("--bins", options.bins, "Process-wide counters, and the measuring of profile bins")
        ->group(group);
    app.add_flag("--bin-tags", options.bin_tags, "Bytes and blocks of every bin and tag, over time")
        ->group(group);
    app.add_flag("--leaks", options.leaks, "What was never freed, by call site")->group(group);
    app.add_flag("--fast-leaks", options.fast_leaks, "What was never freed, as two numbers, at little cost")
        ->group(group);
    app.add_flag("--aux", options.aux, "What the system says of the process, over time")->group(group);
    app.add_flag_callback(
           "--resident", [&options] { options.resident = true; },
           "The resident memory taken apart, over time; on unless no more than counters are asked for")
        ->group(group);
    app.add_flag_callback(
           "--no-resident", [&options] { options.resident = false; }, "Leave it")
        ->group(group);
    app.add_flag("--mappings", options.mappings,
                 "Also what the program maps without a file, such as arenas of runtimes and large arrays")
        ->group(group);
    app.add_flag("--all", options.all, "Everything above but --fast-leaks")->group(group);
    app.add_flag(
           "--paths,!--no-paths", options.paths,
           "Who called: figures for every path of calls, and the exact peak; on wherever stacks are walked")
        ->group(group);
}

void declare_output(CLI::App& app, Options& options) {
    const char* group = "Where reports go";
    app.add_option("-o,--output", options.output,
                   "Folder for the reports, made if need be; default ktl_mem.PROGRAM.PID")
        ->type_name("DIR")
        ->group(group);
    app.add_option("--name", options.name, "Middle word of the file names; default the program's name")
        ->type_name("TEXT")
        ->group(group);
    app.add_flag("--force", options.force, "Replace the reports that the folder already holds")->group(group);
    app.add_flag("--follow-children", options.follow_children, "Track what the program starts, too")
        ->group(group);
    app.add_flag("-q,--quiet", options.quiet, "Say nothing but errors")->group(group);
}

void declare_tuning(CLI::App& app, Options& options) {
    const char* group = "How it is measured";
    app.add_option("--sample-period", options.sample_period,
                   "Allocations and frees between two samples of the timelines; default 131072")
        ->type_name("N")
        ->check(whole_number(1, INT64_MAX))
        ->group(group);
    app.add_option("--peak-step", options.peak_step,
                   "Record a peak at each further multiple of this size, with K, M or G; default 1M")
        ->type_name("BYTES")
        ->transform(size_in_bytes())
        ->group(group);
    app.add_option("--filters", options.filters, "File of further frames that are not charged")
        ->type_name("FILE")
        ->group(group);
    app.add_flag("--unknown-lines,!--no-unknown-lines", options.unknown_lines,
                 "Charge code without line information, too, by function or module; default")
        ->group(group);
    app.add_option("--ignore-depth", options.ignore_depth,
                   "Innermost frames that a stack walk skips; default 5")
        ->type_name("N")
        ->check(whole_number(0, INT_MAX))
        ->group(group);
}

void declare_names(CLI::App& app, Options& options) {
    const char* group = "How code is named";
    app.add_flag("--debuginfod", options.debuginfod,
                 "Fetch missing debug files from the servers in DEBUGINFOD_URLS")
        ->group(group);
    app.add_flag("--name-cache,!--no-name-cache", options.name_cache,
                 "Keep the names that were found in ~/.cache/ktl_mem for the next run; default")
        ->group(group);
}

// "90", "90s", "15m", "2h" as seconds.
CLI::Validator duration() {
    const auto convert = [](std::string& text) {
        const auto given = split_number(text);
        const std::string_view unit = given ? given->second : "?";
        const std::uint64_t seconds = unit.empty() || unit == "s" ? 1
                                      : unit == "m"               ? 60
                                      : unit == "h"               ? 3600
                                                                  : 0;
        if (seconds == 0 || given->first == 0 || given->first > 1'000'000'000)
            return "'" + text + "' is no time: give whole seconds, or s, m or h behind a number (15m)";
        text = std::to_string(given->first * seconds);
        return std::string();
    };
    return {convert, ""};
}

void declare_watch(CLI::App& app, Options& options) {
    const char* group = "While it runs";
    app.add_option(
           "--checkpoint-every", options.checkpoint_every_s,
           "Write all reports as of now into DIR/checkpoint, again and again; seconds, or with s, m or h")
        ->type_name("TIME")
        ->transform(duration())
        ->group(group);
    app.add_option("--on-scarcity", options.on_scarcity,
                   "Run this command by the shell when 80 % of a memory limit are used for the first time")
        ->type_name("CMD")
        ->group(group);
}

void declare_aids(CLI::App& app, Options& options) {
    const char* group = "Debugging aids";
    app.add_option("--fill-new", options.fill_new, "Fill each new block with this byte, such as 0xCD")
        ->type_name("BYTE")
        ->check(unnamed(CLI::Range(0, 255)))
        ->group(group);
    app.add_option("--fill-freed", options.fill_freed, "Fill each block with this byte before its free")
        ->type_name("BYTE")
        ->check(unnamed(CLI::Range(0, 255)))
        ->group(group);
    app.add_flag("--log", options.log,
                 "Write a line for each allocation and free to mem_allocations.NAME.log")
        ->group(group);
}

void require_sense(const Options& options) {
    if (options.name.find('/') != std::string::npos)
        throw CLI::ValidationError("--name", "'" + options.name + "' holds a '/', which a file name cannot");
    if (options.name.size() > longest_name)
        throw CLI::ValidationError("--name", "is longer than the " + std::to_string(longest_name) +
                                                 " bytes that fit into the names of all reports");
    if (options.fast_leaks && (options.leaks || options.all))
        throw CLI::ValidationError("--fast-leaks",
                                   "cannot go with the full leak report of --leaks and --all");
}

}  // namespace

void declare_options(CLI::App& app, Options& options) {
    app.name("ktl_memrun");
    app.description("Runs a program under the memory tracker and leaves a folder of reports");
    app.failure_message(failure_text);
    app.formatter(std::make_shared<HelpFormatter>());
    app.footer(
        "Exit status: that of PROGRAM; a signal that ends PROGRAM ends ktl_memrun, too. 125 for a fault of\n"
        "ktl_memrun itself, 126 when PROGRAM cannot be run, 127 when it is not found.\n\n"
        "Example: ktl_memrun --all -o reports -- python3 script.py");
    app.set_version_flag("--version", "ktl_memrun " KTL_MEM_VERSION);
    app.prefix_command();
    declare_tracking(app, options);
    declare_output(app, options);
    declare_tuning(app, options);
    declare_names(app, options);
    declare_watch(app, options);
    declare_aids(app, options);
}

void complete_options(const CLI::App& app, Options& options) {
    options.command = app.remaining();
    const bool was_marked = !options.command.empty() && options.command.front() == "--";
    if (was_marked) options.command.erase(options.command.begin());
    if (options.command.empty()) throw CLI::RequiredError("PROGRAM");
    if (!was_marked && options.command.front().starts_with('-'))
        throw CLI::ExtrasError({options.command.front()});
    require_sense(options);
    const bool any = options.lines || options.modules || options.bins || options.bin_tags || options.leaks ||
                     options.fast_leaks || options.aux || options.all;
    if (!any && !options.paths) options.lines = options.leaks = true;
    const bool walks = options.lines || options.modules || options.leaks || options.all;
    if (app.count("--paths") == 0) options.paths = walks;
    const bool only_counts = !(walks || options.bin_tags || options.aux);
    if (!options.resident) options.resident = !only_counts;
}

}  // namespace memrun
