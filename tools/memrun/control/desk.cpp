#include "tools/memrun/control/desk.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tools/memrun/contract.h"
#include "tools/memrun/control/whole_folder.h"
#include "tools/memrun/units.h"

namespace fs = std::filesystem;

namespace memrun::control {

namespace {

constexpr std::uint64_t pause_factor = 50;
constexpr std::uint64_t order_pause_factor = 200;
constexpr std::uint64_t longest_order_pause_ms = 2000;
constexpr std::uint64_t allowance_ms = 2000;
constexpr std::uint64_t interrupt_step_ms = 20;

bool takes_reports(Wish wish) {
    return wish == Wish::checkpoint || wish == Wish::mark;
}

Order order_of(Wish wish) {
    switch (wish) {
        case Wish::start:
            return Order::start;
        case Wish::stop:
            return Order::stop;
        case Wish::reset:
            return Order::reset;
        default:
            return Order::reports;
    }
}

// The program writes into the folder, perhaps as another user than it was started by.
bool make_open_folder(const std::string& path) {
    return mkdir(path.c_str(), 0700) == 0;
}

std::string why_refused(Wish wish) {
    if (wish == Wish::start) return "is tracked already";
    if (wish == Wish::stop) return "is not tracked";
    return "is at its end, or has no memory left for it";
}

Answer answer_of(const Process& process, Wish wish) {
    Answer answer = {{"pid", process.pid}, {"word", process.word}};
    const Outcome outcome = process.page->outcome;
    answer["done"] = outcome == Outcome::done;
    if (outcome == Outcome::cannot_write)
        answer["error"] = std::string("cannot write its reports: ") + std::strerror(process.page->error);
    else if (outcome != Outcome::done)
        answer["error"] = why_refused(wish);
    return answer;
}

// The third field of /proc/PID/stat, behind a name that may hold anything.
bool is_stopped(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const std::size_t name_end = text.rfind(')');
    return name_end != std::string::npos && text.size() > name_end + 2 &&
           (text[name_end + 2] == 'T' || text[name_end + 2] == 't');
}

std::string silence_text(const Process& process, bool was_interrupted) {
    if (is_stopped(process.pid))
        return "is stopped by a signal or a debugger, and answers once it goes on (kill -CONT " +
               std::to_string(process.pid) + ")";
    const std::uint64_t since =
        process.figures_wished_ms != 0 ? process.figures_wished_ms : process.arrived_ms;
    const std::string silence =
        "made no allocation or free for " + seconds_text(static_cast<double>(now_ms() - since) / 1000);
    if (was_interrupted)
        return silence +
               " and did not heed SIGURG, which it blocks or handles itself, or it needs longer "
               "than the --timeout";
    return silence +
           ", and only then can it answer; --interrupt has it answer at once, but a system call in "
           "which it waits may return early";
}

}  // namespace

void Desk::ask(const Request& request, Reply reply) {
    Job job;
    job.request = request;
    job.reply = std::move(reply);
    jobs_.push_back(std::move(job));
    step();
}

void Desk::step() {
    while (!jobs_.empty()) {
        Job& job = jobs_.front();
        if (!job.is_given) {
            if (must_wait(job.request)) return;
            give(job);
        }
        collect(job);
        if (!job.waited_for.empty() && now_ms() < job.deadline_ms) return interrupt(job);
        withdraw(job);
        finish(job);
        jobs_.pop_front();
    }
}

// All reports that are ordered cost the run at most a hundredth of its time. Only long ones, behind which
// nobody would like to wait for so long, may use up a first allowance.
bool Desk::must_wait(const Request& request) const {
    const std::uint64_t allowed_ms = allowance_ms + (now_ms() - begun_ms_) / 100;
    return takes_reports(request.wish) && (now_ms() < next_reports_ms_ || spent_us_ / 1000 > allowed_ms);
}

void Desk::give(Job& job) {
    job.is_given = true;
    job.deadline_ms = now_ms() + job.request.timeout_ms;
    if (takes_reports(job.request.wish)) {
        const std::string name = "reports." + std::to_string(++folders_made_);
        job.folder = output_ + "/" + notes_folder + "/" + name;
        if (!make_open_folder(job.folder)) return;
    }
    for (const auto& process : followed_.running()) {
        if (process->page == nullptr) continue;
        Page& page = *process->page;
        if (!job.folder.empty())
            std::snprintf(page.folder, sizeof page.folder, "%s", fs::path(job.folder).filename().c_str());
        page.order = order_of(job.request.wish);
        const std::uint64_t number = page.order_number.fetch_add(1, std::memory_order_release) + 1;
        page.wishes.fetch_or(wishes_order, std::memory_order_release);
        job.numbers[process->pid] = number;
        job.waited_for.push_back(process);
    }
}

// A process that has ended meanwhile answers nothing any more.
void Desk::collect(Job& job) {
    const Processes running = followed_.running();
    std::erase_if(job.waited_for, [&](const std::shared_ptr<Process>& process) {
        const bool is_answered =
            process->page->answered.load(std::memory_order_acquire) == job.numbers[process->pid];
        if (is_answered) {
            job.answers.push_back(answer_of(*process, job.request.wish));
            job.slowest_us = std::max<std::uint64_t>(job.slowest_us, process->page->took_us);
        }
        return is_answered || std::find(running.begin(), running.end(), process) == running.end();
    });
}

void Desk::interrupt(Job& job) {
    if (!job.request.interrupt || now_ms() < job.interrupted_ms + interrupt_step_ms) return;
    job.interrupted_ms = now_ms();
    for (const auto& process : job.waited_for) kill(process->pid, wish_signal);
}

void Desk::withdraw(Job& job) {
    for (const auto& process : job.waited_for) {
        process->page->wishes.fetch_and(~wishes_order);
        job.answers.push_back({{"pid", process->pid},
                               {"word", process->word},
                               {"done", false},
                               {"error", silence_text(*process, job.request.interrupt)}});
    }
}

void Desk::finish(Job& job) {
    const bool any_done = std::any_of(job.answers.begin(), job.answers.end(),
                                      [](const Answer& one) { return one.value("done", false); });
    Answer answer = {{"ok", any_done}, {"processes", job.answers}};
    if (!any_done && job.answers.empty()) answer["error"] = "no tracked process runs just now";
    if (!any_done && !job.answers.empty())
        answer["error"] = job.answers.front().value("word", "") + " (" +
                          std::to_string(job.answers.front().value("pid", 0)) + ") " +
                          job.answers.front().value("error", "");
    if (!job.folder.empty()) {
        spent_us_ += job.slowest_us;
        quiet_until_ms_ = now_ms() + pause_factor * job.slowest_us / 1000;
        next_reports_ms_ =
            now_ms() + std::min(order_pause_factor * job.slowest_us / 1000, longest_order_pause_ms);
        if (any_done) answer.update(publish(job));
        std::error_code is_published;
        fs::remove_all(job.folder, is_published);
    }
    job.reply(answer);
}

Answer Desk::publish(Job& job) {
    const bool is_mark = job.request.wish == Wish::mark;
    const std::string target =
        output_ + "/" + (is_mark ? std::string(marks_folder) + "/" + job.request.name : checkpoint_folder);
    const std::string cut = cut_report(job.folder);
    if (!cut.empty())
        return refusal(cut + " is cut, so that nothing was replaced in '" + target + "'. Is the disk full?");
    const std::string why = is_mark ? put_new_folder(job.folder, target) : replace_folder(job.folder, target);
    if (!why.empty()) return refusal(why);
    if (!is_mark) {
        last_checkpoint_ms_ = now_ms();
        is_last_checkpoint_automatic_ = job.request.is_automatic;
    }
    return {{"folder", target}, {"seconds", static_cast<double>(job.slowest_us) / 1e6}};
}

void Desk::close() {
    for (Job& job : jobs_) {
        withdraw(job);
        job.reply(refusal("the program has ended"));
    }
    jobs_.clear();
}

}  // namespace memrun::control
