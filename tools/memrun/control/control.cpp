#include "tools/memrun/control/control.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>

#include "tools/memrun/contract.h"
#include "tools/memrun/control/listener.h"
#include "tools/memrun/control/status.h"

namespace memrun::control {

namespace {

constexpr std::uint64_t tick_ms = 100;
constexpr int order_step_ms = 2;
constexpr std::uint64_t automatic_timeout_ms = 2000;

void serve(const std::string& line, const Listener::Send& send, Desk& desk, const Followed& followed,
           const std::string& output) {
    // Names need not be UTF-8.
    const auto reply = [send](const Answer& answer) {
        send(answer.dump(-1, ' ', false, Answer::error_handler_t::replace));
    };
    std::string why;
    const std::optional<Request> request = parse_request(line, why);
    if (!request) return reply(refusal(why));
    if (request->wish == Wish::status) return reply(status_of(followed.running(), desk, output));
    if (request->wish == Wish::paths || request->wish == Wish::top)
        return reply(refusal("the call paths of no process are shared with the launcher"));
    desk.ask(*request, reply);
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
        serve(line, send, desk, followed_, output);
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
    if (desk.last_checkpoint_ms() != 0) {
        last_look_.checkpoint_age_ms = now_ms() - desk.last_checkpoint_ms() + 1;
        last_look_.is_checkpoint_automatic = desk.is_last_checkpoint_automatic();
    }
}

void Control::tick(Desk& desk) {
    ask_for_figures();
    if (const MemoryRoom room = tightest_room(followed_.running()); !room.limit_name.empty())
        last_look_.room = room;
    const auto period_ms = static_cast<std::uint64_t>(settings_.checkpoint_every_s * 1000);
    if (period_ms == 0 || now_ms() < next_checkpoint_ms_) return;
    if (next_checkpoint_ms_ != 0) take_checkpoint(desk);
    next_checkpoint_ms_ = now_ms() + period_ms;
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
