// ktl_memrun: runs an unmodified program under the memory tracker.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "tools/common/harmless.h"
#include "tools/memrun/aftermath.h"
#include "tools/memrun/contract.h"
#include "tools/memrun/control/control.h"
#include "tools/memrun/control/path_namer.h"
#include "tools/memrun/environment.h"
#include "tools/memrun/failure.h"
#include "tools/memrun/filters.h"
#include "tools/memrun/last_process.h"
#include "tools/memrun/libraries.h"
#include "tools/memrun/link/event_loop.h"
#include "tools/memrun/link/server.h"
#include "tools/memrun/names/disk_cache.h"
#include "tools/memrun/names/name_service.h"
#include "tools/memrun/options.h"
#include "tools/memrun/output_folder.h"
#include "tools/memrun/program.h"
#include "tools/memrun/run.h"
#include "tools/memrun/summary.h"

namespace memrun {

namespace {

void look_at_filters(const Options& options) {
    if (options.filters.empty()) return;
    require_readable_filters(options.filters);
    const std::string wrong = wrong_filter_lines(options.filters);
    if (!wrong.empty() && !options.quiet) std::cerr << "ktl_memrun: " << wrong << std::endl;
}

void require_debug_servers(const Options& options) {
    const char* servers = std::getenv("DEBUGINFOD_URLS");
    if (options.debuginfod && (servers == nullptr || *servers == 0))
        throw Failure(
            status_launcher_fault,
            "--debuginfod asks the servers that DEBUGINFOD_URLS names, and it names none: set it to the "
            "address of your distribution's server");
}

std::vector<std::string> own_environment() {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) entries.emplace_back(*entry);
    return entries;
}

// Runs in the process that is to become the program: only there its number is known.
std::vector<std::string> prepare(const Options& options, const Libraries& libraries, const Launch& launch,
                                 const link::Server& server) {
    prepare_output(launch.output, options.force);
    server.listen_in(launch.output + "/" + notes_folder);
    if (!options.quiet) std::cerr << "ktl_memrun: reports go to " << harmless(launch.output) << std::endl;
    return tracked_environment(own_environment(), options, libraries, launch);
}

Ending track(const Options& options) {
    look_at_filters(options);
    require_debug_servers(options);
    const Program program = find_program(options.command);
    const Libraries libraries = find_libraries();
    // Cut, so that the names of folder and files that are made of it stay possible.
    const std::string program_name =
        std::filesystem::path(options.command.front()).filename().string().substr(0, 100);
    const std::string name = options.name.empty() ? program_name : options.name;
    const auto folder_of = [&](int pid) { return output_path(options, program_name, pid); };
    const FolderClaim claim(options.output);
    link::EventLoop loop;
    link::Server server(loop);
    names::NameService names(loop, options.name_cache ? names::default_cache_folder() : std::string(),
                             options.debuginfod);
    server.judge_successors_by(is_trackable);
    server.add(names);
    control::Followed followed;
    server.add(followed);
    const auto have_code_named = [&] { names.serve_launcher(); };
    control::read_filters(options.filters);
    control::Control control(followed, {options.checkpoint_every_s, options.on_scarcity, have_code_named});
    const StartSteps steps = {
        [&](int pid) {
            return prepare(options, libraries, {folder_of(pid), name, program.tracked, pid}, server);
        },
        [&](int pid) { discard_output(folder_of(pid)); },
        [&](int pid) {
            server.begin();
            control.begin(folder_of(pid));
        }};
    if (options.follow_forks) adopt_orphans();
    const Ending ending = run_program(program.path, options.command, steps);
    if (options.follow_forks) wait_for_last_process(followed, ending.pid, program.tracked, options.quiet);
    control.end();
    const std::string output = folder_of(ending.pid);
    std::vector<ProcessNote> notes = take_notes(output, name);
    if (!ended_with_reports(notes)) have_code_named();
    const Aftermath aftermath = write_last_words(followed, notes, ending.pid, output);
    std::erase_if(notes, [](const ProcessNote& note) { return note.has_left; });
    names.finish();  // before the thread ends that the namer was started by, with which it would be killed
    loop.stop();
    note_sizes(output);
    const Run run{
        program_name,        output,   ending, notes, find_survivors(ending.pid, notes), names.modules(),
        control.last_look(), aftermath};
    if (run.last_look.is_checkpoint_automatic && ended_with_reports(run.notes)) discard_checkpoint(output);
    if (!options.quiet) std::cerr << summary_text(run, options, takes_colour()) << std::flush;
    return ending;
}

int run_command_line(int argc, char** argv) {
    CLI::App app;
    Options options;
    declare_options(app, options);
    try {
        app.parse(argc, argv);
        complete_options(app, options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : status_launcher_fault;
    }
    try {
        end_like(track(options));
    } catch (const Failure& failure) {
        std::cerr << "ktl_memrun: " << harmless(failure.what()) << std::endl;
        return failure.status;
    } catch (const std::exception& error) {
        std::cerr << "ktl_memrun: " << harmless(error.what()) << std::endl;
        return status_launcher_fault;
    }
}

}  // namespace

}  // namespace memrun

int main(int argc, char** argv) {
    memrun::guard_standard_streams();
    return memrun::run_command_line(argc, argv);
}
