#include "tools/memrun/control/control.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <utility>

#include "tools/memrun/contract.h"
#include "tools/memrun/control/path_figures.h"
#include "tools/memrun/control/status.h"
#include "tools/memrun/control/whole_folder.h"

namespace memrun::control {

namespace {

constexpr std::uint64_t tick_ms = 100;
constexpr int order_step_ms = 2;
constexpr std::uint64_t automatic_timeout_ms = 2000;

constexpr std::size_t sites_of_top = 200;

Answer sites_of(const Held& held) {
    Answer sites = Answer::array();
    for (const HeldSite& site : held.sites)
        sites.push_back({{"bytes", site.bytes},
                         {"blocks", site.blocks},
                         {"place", site.place},
                         {"function", site.function}});
    return sites;
}

}  // namespace

Control::Control(Followed& followed, ControlSettings settings)
    : followed_(followed),
      settings_(std::move(settings)),
      scarcity_(settings_.on_scarcity),
      stop_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Control::~Control() {
    end();
    if (stop_fd_ >= 0) close(stop_fd_);
}

void Control::begin(const std::string& output) {
    if (stop_fd_ < 0) return;
    sigset_t all;
    sigset_t found;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &found);
    thread_ = std::thread([this, output] { watch(output); });
    pthread_sigmask(SIG_SETMASK, &found, nullptr);
}

void Control::end() {
    if (!thread_.joinable()) return;
    const std::uint64_t one = 1;
    const ssize_t ignored = write(stop_fd_, &one, sizeof one);
    static_cast<void>(ignored);
    thread_.join();
}

LastLook Control::last_look() const {
    return last_look_;
}

void Control::watch(const std::string& output) {
    Desk desk(followed_, output);
    Listener listener(output + "/" + notes_folder, [&](const std::string& line, const Listener::Send& send) {
        serve(line, send, desk, output);
    });
    std::uint64_t next_tick = now_ms();
    std::uint64_t stop = 0;
    while (read(stop_fd_, &stop, sizeof stop) < 0) {
        const std::uint64_t now = now_ms();
        if (now >= next_tick) {
            tick(desk);
            if (scarcity_.is_next_step(last_look_.room.percent)) {
                scarcity_.run_command(output, last_look_.room);
                take_checkpoint(desk);
            }
            next_tick = now_ms() + tick_ms;
        }
        desk.step();
        listener.wait(stop_fd_, desk.is_idle() ? static_cast<int>(tick_ms) : order_step_ms);
    }
    desk.close();
    look_for_kills();
    if (desk.last_checkpoint_ms() != 0) {
        last_look_.checkpoint_age_ms = now_ms() - desk.last_checkpoint_ms() + 1;
        last_look_.is_checkpoint_automatic = desk.is_last_checkpoint_automatic();
    }
}

void Control::serve(const std::string& line, const Listener::Send& send, Desk& desk,
                    const std::string& output) const {
    // Names need not be UTF-8.
    const auto reply = [send](const Answer& answer) {
        send(answer.dump(-1, ' ', false, Answer::error_handler_t::replace));
    };
    std::string why;
    const std::optional<Request> request = parse_request(line, why);
    if (!request) return reply(refusal(why));
    if (request->wish == Wish::status) return reply(status_of(followed_.running(), desk, output));
    if (request->wish == Wish::top) return reply(top(desk, output));
    if (request->wish == Wish::paths) return reply(write_paths(output));
    desk.ask(*request, reply);
}

// The region has the exact figures of this moment.
Answer Control::top(const Desk& desk, const std::string& output) const {
    settings_.have_code_named();
    const Processes processes = followed_.running();
    Answer answer = status_of(processes, desk, output);
    for (std::size_t i = 0; i < processes.size(); ++i) {
        Held held;
        if (!read_held(*processes[i], sites_of_top, held)) continue;
        Answer& told = answer["processes"][i];
        told["current_bytes"] = held.bytes;
        told["current_blocks"] = held.blocks;
        told["peak_bytes"] = held.peak_bytes;
        told["sites"] = sites_of(held);
    }
    return answer;
}

Answer Control::write_paths(const std::string& output) const {
    settings_.have_code_named();
    const std::string folder = output + "/" + notes_folder + "/" + paths_folder;
    Answer written = Answer::array();
    std::error_code error;
    std::filesystem::create_directory(folder, error);
    std::string why =
        "no call paths are shared with the launcher: the run was started with --no-paths, or no "
        "tracked process runs just now";
    for (const auto& process : followed_.running()) {
        if (process->call_paths < 0) continue;
        why.clear();
        if (!write_call_paths(*process, folder)) {
            why = "cannot write the call paths to '" + output + "'. Is the disk full?";
            break;
        }
        written.push_back({{"pid", process->pid}, {"word", process->word}, {"done", true}});
    }
    if (why.empty()) why = replace_folder(folder, output + "/" + paths_folder);
    std::filesystem::remove_all(folder, error);
    if (!why.empty()) return refusal(why);
    return {{"ok", true}, {"processes", written}, {"folder", output + "/" + paths_folder}};
}

void Control::tick(Desk& desk) {
    ask_for_figures();
    look_at_cgroups();
    if (const MemoryRoom room = tightest_room(followed_.running()); !room.limit_name.empty())
        last_look_.room = room;
    const auto period_ms = static_cast<std::uint64_t>(settings_.checkpoint_every_s * 1000);
    if (period_ms == 0 || now_ms() < next_checkpoint_ms_) return;
    if (next_checkpoint_ms_ != 0) take_checkpoint(desk);
    next_checkpoint_ms_ = now_ms() + period_ms;
}

void Control::look_at_cgroups() {
    for (const auto& process : followed_.running())
        if (const std::string folder = limited_cgroup(process->pid);
            !folder.empty() && !kills_before_.contains(folder))
            kills_before_[folder] = kills_in_cgroup(folder);
}

void Control::look_for_kills() {
    last_look_.is_killed_for_memory = kills_on_machine() > machine_kills_before_;
    for (const auto& [folder, before] : kills_before_) {
        if (kills_in_cgroup(folder) <= before) continue;
        last_look_.is_killed_for_memory = true;
        last_look_.cgroup = folder;
    }
}

void Control::ask_for_figures() const {
    for (const auto& process : followed_.running()) {
        if (process->page == nullptr) continue;
        const std::uint32_t before = process->page->wishes.fetch_or(wishes_figures);
        if ((before & wishes_figures) == 0) process->figures_wished_ms = now_ms();
    }
}

// In a pause after others, or behind an order that still waits, there is none.
void Control::take_checkpoint(Desk& desk) const {
    if (!desk.is_idle() || !desk.may_take_reports()) return;
    Request request;
    request.wish = Wish::checkpoint;
    request.timeout_ms = automatic_timeout_ms;
    request.is_automatic = true;
    desk.ask(request, [](const Answer&) {});
}

}  // namespace memrun::control
