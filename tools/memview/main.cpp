// ktl_memview: looks at the report files that a tracked process left behind.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>

#include "tools/memview/check.h"
#include "tools/memview/diff.h"
#include "tools/memview/diff_output.h"
#include "tools/memview/export.h"
#include "tools/memview/growth.h"
#include "tools/memview/options.h"
#include "tools/memview/page.h"
#include "tools/memview/show.h"
#include "tools/memview/show_tree.h"
#include "tools/memview/top.h"
#include "tools/memview/units.h"
#include "tools/reports/folder.h"
#include "tools/reports/report_kinds.h"

namespace fs = std::filesystem;

namespace memview {
namespace {

constexpr int status_different = 1;
constexpr int status_trouble = 2;

void say_left_out(const Folder& folder) {
    for (const std::string& line : folder.left_out)
        std::cerr << "ktl_memview: left out: " << harmless(line) << "\n";
}

std::unique_ptr<Folder> read(const Options& options) {
    return read_folders({options.folders, options.process, options.keep_going});
}

int run_show(const Options& options) {
    const auto folder = read(options);
    const Terminal terminal = standard_terminal();
    if (!options.as_tree) show(*folder, options, terminal, std::cout);
    for (const Run& run : folder->runs) {
        if (options.as_tree) show_tree(run, *folder->names, options, terminal, std::cout);
    }
    say_left_out(*folder);
    return 0;
}

// What fails half way leaves the file that was there before: it is written beside it, and takes its name at
// the end. What is no plain file, such as a pipe, is written itself.
class OutputFile {
  public:
    explicit OutputFile(const std::string& name) : name_(name), written_(name) {
        if (!fs::exists(name) || fs::is_regular_file(name)) written_ += ".part";
    }
    ~OutputFile() {
        std::error_code not_there;
        if (written_ != name_) fs::remove(written_, not_there);
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& written() const { return written_; }
    void keep() const {
        if (written_ != name_) fs::rename(written_, name_);
    }

  private:
    std::string name_;
    std::string written_;
};

// A report is never written over, whether it is one of those that are read or not.
void require_no_report(const Options& options) {
    std::error_code not_there;
    if (options.output.empty() || !fs::is_regular_file(options.output, not_there)) return;
    const std::string name = fs::path(options.output).filename().string();
    const bool is_report = (name.starts_with(file_prefix) && name.ends_with(file_suffix)) ||
                           name == fast_leak_file || name == shared_leak_file;
    if (is_report) throw ReportError({options.output, 0, "is a report: give --output another name"});
}

// Lets `write` write to the file of --output, or to standard output when none is given.
void write_output(const Options& options, const std::function<void(std::ostream&)>& write) {
    if (options.output.empty()) return write(std::cout);
    const OutputFile output(options.output);
    std::ofstream file(output.written(), std::ios::binary | std::ios::trunc);
    if (!file)
        throw ReportError({options.output, 0, std::string("cannot be written: ") + std::strerror(errno)});
    write(file);
    file.close();
    if (!file) throw ReportError({options.output, 0, "cannot be written to its end: is the disk full?"});
    output.keep();
}

void write_output(const Options& options, const std::string& text) {
    write_output(options, [&text](std::ostream& out) { out << text; });
}

int run_html(const Options& options) {
    const auto folder = read(options);
    write_output(options, make_run_page(*folder));
    say_left_out(*folder);
    return 0;
}

int run_diff(const Options& options) {
    const auto before = read_folders({{options.before}, options.process, options.keep_going});
    const auto after = read_folders({{options.after}, options.process, options.keep_going}, before->names);
    const auto diff = make_diff(*before, *after, options.sort, options.tolerance);
    if (options.as_html) {
        write_output(options, diff_page(*diff));
    } else if (options.as_json) {
        write_output(options, [&](std::ostream& out) { write_diff_json(*diff, out); });
    } else {
        const Terminal terminal = options.output.empty() ? standard_terminal() : Terminal{false, 0, 0};
        write_output(options, [&](std::ostream& out) { print_diff(*diff, options, terminal, out); });
    }
    for (const std::string& note : diff->notes) std::cerr << "ktl_memview: " << harmless(note) << "\n";
    for (const ProcessDiff& process : diff->processes) {
        for (const std::string& note : process.notes) std::cerr << "ktl_memview: " << harmless(note) << "\n";
    }
    say_left_out(*before);
    say_left_out(*after);
    return diff->different() ? status_different : 0;
}

int run_check(const Options& options) {
    const auto folder = read(options);
    const bool good = check(*folder, options, std::cout);
    say_left_out(*folder);
    if (!good) return options.exit_code;
    return folder->left_out.empty() ? 0 : status_trouble;  // what was not read has not passed
}

int run_export(const Options& options) {
    const auto folder = read(options);
    const bool to_terminal = options.output.empty() && ::isatty(STDOUT_FILENO) == 1;
    if (options.format == "pprof" && to_terminal) {
        throw ReportError(
            {"standard output", 0, "is a terminal and pprof's form is binary: give --output FILE"});
    }
    write_output(options, [&](std::ostream& out) { export_reports(*folder, options, out); });
    say_left_out(*folder);
    return 0;
}

int run_growth(const Options& options) {
    const Growth growth = read_growth(options.folders.front(), options.process, options.keep_going);
    const Terminal terminal = options.output.empty() ? standard_terminal() : Terminal{false, 0};
    write_output(options, [&](std::ostream& out) {
        options.as_json ? write_growth_json(growth, out) : print_growth(growth, options.top, terminal, out);
    });
    for (const std::string& line : growth.left_out) std::cerr << "ktl_memview: left out: " << line << "\n";
    return 0;
}

int run_top(const Options& options) {
    watch_run(options.folders.front(), std::cout);
    return 0;
}

int run(const Options& options) {
    static const std::map<std::string, int (*)(const Options&)> commands = {
        {"show", run_show},     {"html", run_html},     {"diff", run_diff}, {"check", run_check},
        {"export", run_export}, {"growth", run_growth}, {"top", run_top}};
    require_no_report(options);
    const int status = commands.at(options.command)(options);
    std::cout.flush();
    if (!std::cout) throw ReportError({"standard output", 0, "cannot be written"});
    return status;
}

int parse_and_run(int argc, char** argv) {
    Options options;
    const std::unique_ptr<CLI::App> app = make_app(options);
    try {
        app->parse(argc, argv);
        return run(options);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app->exit(error);  // --help and --version come this way too
        std::cerr << "ktl_memview: " << error.what() << "\nTry 'ktl_memview --help'.\n";
        return status_trouble;
    } catch (const std::exception& error) {
        std::cerr << "ktl_memview: " << harmless(error.what()) << "\n";
        return status_trouble;
    }
}

}  // namespace
}  // namespace memview

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);  // an export can be a gigabyte
    return memview::parse_and_run(argc, argv);
}
