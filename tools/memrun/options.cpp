#include "tools/memrun/options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <climits>
#include <optional>
#include <string_view>
#include <utility>

#include "mem/settings/tracking_settings.h"

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
    // Without what the parser writes behind a name that switches something off.
    std::string make_option_name(const CLI::Option* option, bool is_positional) const override {
        std::string name = CLI::Formatter::make_option_name(option, is_positional);
        constexpr std::string_view off = "{false}";
        if (name.ends_with(off)) name.resize(name.size() - off.size());
        return name;
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
    for (const MEM_TRACKING_SETTING& setting : mem_tracking_settings) {
        const auto choose = [&options, bits = setting.bits](std::int64_t wanted) {
            (wanted > 0 ? options.tracked : options.refused) |= bits;
        };
        std::string names = setting.option;
        if (setting.can_be_refused) names += ",!" + std::string(setting.option).replace(0, 2, "--no-");
        app.add_flag_function(names, choose, setting.help)->group(group);
    }
    app.add_flag("--mappings", options.mappings,
                 "Also what the program maps without a file, such as arenas of runtimes and large arrays")
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
    app.add_flag("--follow-forks", options.follow_forks,
                 "Track forked children, too, and wait for the last of them, as of a daemon")
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
    if (options.tracks(MEM_TRACKING_LEAKS_FAST) && options.tracks(MEM_TRACKING_LEAKS))
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
    const std::uint32_t walking = MEM_TRACKING_PER_FILELINE | MEM_TRACKING_PER_LIBRARY | MEM_TRACKING_LEAKS;
    const std::uint32_t over_time = MEM_TRACKING_PROFILE_BIN_TAGS | MEM_TRACKING_AUXILIARY_TIMELINE;
    std::uint32_t& tracked = options.tracked;
    if ((tracked & ~std::uint32_t{MEM_TRACKING_RESIDENT}) == 0)
        tracked |= MEM_TRACKING_PER_FILELINE | MEM_TRACKING_LEAKS;
    if ((tracked & walking) != 0) tracked |= MEM_TRACKING_CALL_PATHS & ~options.refused;
    if ((tracked & (walking | over_time)) != 0) tracked |= MEM_TRACKING_RESIDENT & ~options.refused;
}

}  // namespace memrun
