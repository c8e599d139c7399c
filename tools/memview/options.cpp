#include "tools/memview/options.h"

#include <CLI/CLI.hpp>

#include "mem/columns/report_columns.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

void add_reading(CLI::App& command, Options& options) {
    command
        .add_option("--process", options.process, "Only the process with this middle word in its file names")
        ->type_name("WORD");
    command.add_flag(
        "--keep-going", options.keep_going,
        "Read what can be read and say what was left out, instead of stopping at the first fault");
}

void add_folders(CLI::App& command, Options& options) {
    command.add_option("DIR", options.folders, "Folders with report files")->required()->type_name("DIR");
    add_reading(command, options);
}

void add_output(CLI::App& command, Options& options) {
    command.add_option("-o,--output", options.output, "Write to this file instead of standard output")
        ->type_name("FILE");
}

CLI::Option* add_amount(CLI::App& command, const char* name, std::optional<Amount>& into, const char* text) {
    return command
        .add_option_function<std::string>(
            name, [&into](const std::string& given) { into = parse_amount(given); }, text)
        ->type_name("AMOUNT");
}

CLI::Option* add_bytes(CLI::App& command, const char* name, std::optional<Amount>& into, const char* text) {
    return add_amount(command, name, into, text)
        ->check(CLI::Validator(
            [](const std::string& given) {
                return given.ends_with('%')
                           ? "\"" + given + "\" is a share, and here is nothing to take it of: give bytes"
                           : std::string();
            },
            ""));
}

void add_top(CLI::App& command, Options& options) {
    command
        .add_option_function<std::size_t>(
            "--top",
            [&options](std::size_t rows) {
                options.top = rows;
                options.is_top_given = true;
            },
            "Rows of each table; 0 for all")
        ->default_str(std::to_string(options.top))
        ->type_name("N");
}

void add_full_names(CLI::App& command, Options& options) {
    command.add_flag("--full-names", options.full_names,
                     "Names as the program has them, with default template arguments and inline namespaces");
}

void add_measure(CLI::App& command, Options& options, const char* text) {
    command.add_option("--measure", options.sort, text)
        ->check(CLI::IsMember({"peak", "max", "current", "cumulative"}))
        ->capture_default_str()
        ->type_name("COLUMN");
}

// The figures of call sites, what paths have beside them, and the name.
std::vector<std::string> sort_keys() {
    std::vector<std::string> keys;
    for (const MEM_COLUMN& column : mem_report::call_sites.columns)
        if (column.unit == MEM_COLUMN_UNIT::bytes || column.unit == MEM_COLUMN_UNIT::blocks)
            keys.emplace_back(column.key);
    keys.insert(keys.end(), {mem_column::temporary_blocks.key, "name"});
    return keys;
}

void add_selection(CLI::App& command, Options& options) {
    command.add_option("--sort", options.sort, std::string("Sort by this figure, or \"name\""))
        ->check(CLI::IsMember(sort_keys()))
        ->capture_default_str()
        ->type_name("COLUMN");
    add_top(command, options);
    command
        .add_option("--match", options.match,
                    "Only rows whose module, file, function or name matches this extended regular expression")
        ->type_name("REGEX");
}

void add_show(CLI::App& app, Options& options) {
    CLI::App* command =
        app.add_subcommand("show", "Show totals, peak and the top rows of each table in the terminal");
    add_folders(*command, options);
    add_selection(*command, options);
    add_full_names(*command, options);
    command
        ->add_flag("--tree", options.as_tree,
                   "Show who called for the memory as a tree with shares, by the figure of --sort")
        ->excludes(command->get_option("--match"));
}

void add_html(CLI::App& app, Options& options) {
    CLI::App* command = app.add_subcommand(
        "html",
        "Write one self-contained page with charts and tables, which opens in any browser without a network");
    add_folders(*command, options);
    command->add_option("-o,--output", options.output, "The page to write")->required()->type_name("FILE");
}

void add_diff(CLI::App& app, Options& options) {
    CLI::App* command = app.add_subcommand("diff", "Compare two runs by call site, module, bin and tag");
    command->add_option("BEFORE", options.before, "The folder of the run before")
        ->required()
        ->type_name("DIR");
    command->add_option("AFTER", options.after, "The folder of the run after")->required()->type_name("DIR");
    add_reading(*command, options);
    add_measure(*command, options, "The figure to compare");
    add_top(*command, options);
    add_full_names(*command, options);
    command
        ->add_option_function<std::string>(
            "--tolerance", [&options](const std::string& given) { options.tolerance = parse_amount(given); },
            "Changes up to this amount, in bytes (64K) or of the value before (5%), count as none")
        ->type_name("AMOUNT");
    CLI::Option* html = command->add_flag("--html", options.as_html, "Write a page instead of a table");
    command->add_flag("--json", options.as_json, "Write JSON instead of a table")->excludes(html);
    add_output(*command, options);
}

void add_check(CLI::App& app, Options& options) {
    CLI::App* command = app.add_subcommand(
        "check",
        "Hold a run against limits, and its reports against each other; made for continuous integration");
    add_folders(*command, options);
    add_bytes(*command, "--max-peak", options.max_peak, "The peak may be this high (2G)");
    CLI::Option* max_leaked =
        add_bytes(*command, "--max-leaked", options.max_leaked, "The leak report may hold this much (0)");
    CLI::Option* max_site_growth =
        add_amount(*command, "--max-site-growth", options.max_site_growth,
                   "No call site may grow by more than this, in bytes or of its peak in the baseline (10%)");
    CLI::Option* baseline =
        command->add_option("--baseline", options.baseline, "The run that --max-site-growth compares with")
            ->needs(max_site_growth)
            ->type_name("DIR");
    max_site_growth->needs(baseline);
    command
        ->add_option("--allow", options.allow,
                     "Leaks that --max-leaked does not count: lines of the form leak:PATTERN")
        ->needs(max_leaked)
        ->type_name("FILE");
    command->add_option("--exit-code", options.exit_code, "The exit status of a failed check")
        ->check(CLI::Range(1, 125))
        ->capture_default_str()
        ->type_name("N");
}

void add_export(CLI::App& app, Options& options) {
    CLI::App* command = app.add_subcommand("export", "Write the reports in a form that other tools read");
    add_folders(*command, options);
    command->add_option("--format", options.format, "The form to write")
        ->required()
        ->check(CLI::IsMember({"pprof", "collapsed", "json", "csv", "speedscope"}))
        ->type_name("FORMAT");
    add_measure(*command, options, "The figure of a collapsed file");
    command->add_option("--table", options.table, "The table of a csv file")
        ->check(CLI::IsMember({"sites", "modules", "bins", "tags", "leaks", "fast_leaks", "filtered"}))
        ->capture_default_str()
        ->type_name("TABLE");
    add_output(*command, options);
}

void add_growth(CLI::App& app, Options& options) {
    CLI::App* command = app.add_subcommand(
        "growth", "Put all marks of a run side by side: which call sites grew, and by how much");
    add_folders(*command, options);
    command->get_option("DIR")->expected(1);
    add_top(*command, options);
    command->add_flag("--json", options.as_json, "Write JSON instead of a table");
    add_output(*command, options);
}

void add_live(CLI::App& app, Options& options) {
    CLI::App* command = app.add_subcommand("top",
                                           "Watch a run that goes on: what it holds, and which call sites "
                                           "do; a line each second without a terminal");
    command->add_option("DIR", options.folders, "The folder that the run writes to")
        ->required()
        ->expected(1)
        ->type_name("DIR");
}

}  // namespace

std::unique_ptr<CLI::App> make_app(Options& options) {
    auto app = std::make_unique<CLI::App>(
        "Reads the report files that a tracked process left in a folder, and shows, compares, checks and "
        "exports "
        "them. Changes nothing in the folder.",
        "ktl_memview");
    app->set_version_flag("--version", std::string("ktl_memview ") + KTL_MEM_VERSION);
    app->require_subcommand(1);
    add_show(*app, options);
    add_html(*app, options);
    add_diff(*app, options);
    add_check(*app, options);
    add_export(*app, options);
    add_growth(*app, options);
    add_live(*app, options);
    app->parse_complete_callback(
        [&options, raw = app.get()] { options.command = raw->get_subcommands().front()->get_name(); });
    return app;
}

cli_doc::Page manual_page() {
    cli_doc::Page page;
    page.version = KTL_MEM_VERSION;
    page.summary = "look at the memory reports of a run";
    page.synopsis = {"COMMAND [OPTIONS] DIR..."};
    page.sections = {
        {"FIGURES",
         "Peak is a row's share at the peak of the whole process: the exact one in a run with call paths, "
         "else "
         "the one that was recorded in steps; max is the row's own highest value, whenever "
         "it was; current is what was held at the end; cumulative is all that was ever allocated."},
        {"EXIT STATUS",
         "0: done; diff: no difference beyond the tolerance; check: passed.\n\n"
         "1: diff: a difference; check: failed, unless --exit-code chose another.\n\n"
         "2: trouble: bad options, a folder or file that cannot be read, an output that cannot be written."},
        {"ENVIRONMENT", "NO_COLOR: set and not empty, no colour. COLUMNS: the width of the terminal."},
        {"EXAMPLES",
         "    ktl_memview show ktl_mem.python3.4711\n"
         "    ktl_memview show --tree ktl_mem.python3.4711\n"
         "    ktl_memview html -o run.html ktl_mem.python3.4711\n"
         "    ktl_memview diff before after --tolerance 1%\n"
         "    ktl_memview check --max-peak 2G --max-leaked 0 --allow known.txt reports\n"
         "    ktl_memview export --format pprof -o run.pb.gz reports"},
        {"KEYS OF top", "m takes a mark, c a checkpoint, / searches in places and functions, q leaves."},
        {"SEE ALSO", "ktl_memrun(1), ktl_memctl(1)"}};
    return page;
}

}  // namespace memview
