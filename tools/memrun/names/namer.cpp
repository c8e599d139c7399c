#include "tools/memrun/names/namer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "platform/mapped_memory.h"
#include "platform/symbols/file_helpers.h"
#include "tools/memrun/link/message.h"
#include "tools/memrun/names/debug_server.h"
#include "tools/memrun/names/module_names.h"

namespace memrun::names {

using symbols::NAME_CHANNEL;
using symbols::NAME_SLOT;
using symbols::SLOT_STATE;

namespace {

constexpr std::uint64_t most_cache_bytes = std::uint64_t{256} << 20;
constexpr int pulse_ms = 100;
// Longer than this no readable file takes for one answer.
constexpr int longest_answer_s = 60;
// How long nothing is asked before what is new goes to the disk.
constexpr int quiet_ms = 2000;

symbols::NAME_BELL* pulsing_bell = nullptr;
volatile std::sig_atomic_t is_busy = 0;
volatile std::sig_atomic_t beats = 0;  // in the answer in work

// Waiting processes take the pulse for a sign of life.
void beat(int) {
    ++pulsing_bell->pulse;
    beats = is_busy != 0 ? beats + 1 : 0;
    if (beats > longest_answer_s * 1000 / pulse_ms) _exit(1);
}

// 0: no pulse.
void set_pulse(int milliseconds) {
    const timeval step = {0, milliseconds * 1000};
    const itimerval timer = {step, step};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

struct Unmap {
    void operator()(NAME_CHANNEL* channel) const { munmap(channel, sizeof *channel); }
};
using MappedChannel = std::unique_ptr<NAME_CHANNEL, Unmap>;

class Namer {
  public:
    explicit Namer(const NamerSeat& seat) : seat_(seat) {
        if (!seat.cache_folder.empty()) cache_.emplace(seat.cache_folder, most_cache_bytes);
        if (seat.table != nullptr) table_.emplace(*seat.table);
    }

    void serve() {
        while (true) {
            const std::uint32_t rings = seat_.bell->rings.load();
            if (!hear_launcher()) break;
            if (answer_all()) continue;
            rest(rings);
        }
        save();
        list_modules();
    }

  private:
    void rest(std::uint32_t rings);
    bool hear_launcher();
    void take_channel(pid_t pid, int fd);
    bool answer_all();
    void answer(pid_t asker, NAME_SLOT& slot);
    void answer_question(pid_t asker, const symbols::NAME_QUESTION& question, std::size_t room,
                         symbols::TEXT_WRITER& writer);
    ModuleNames& module_of(const symbols::NAME_QUESTION& question, pid_t asker);
    void list_modules() const;
    void save();

    const NamerSeat& seat_;
    std::optional<DiskCache> cache_;
    std::optional<symbols::NAME_TABLE_WRITER> table_;
    std::map<pid_t, MappedChannel> channels_;
    std::map<std::string, ModuleNames> modules_;  // by path and build-id
    std::uint32_t heard_ = 0;                     // of the launcher's words
    bool has_pulse_ = false;
};

// Until somebody rings. When nobody has for a while, what is new goes to the disk and the pulse stops.
void Namer::rest(std::uint32_t rings) {
    const auto begin = std::chrono::steady_clock::now();
    while (has_pulse_ && seat_.bell->rings.load() == rings) {
        symbols::wait_for_change(&seat_.bell->rings, rings, quiet_ms);
        if (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(quiet_ms)) continue;
        save();
        set_pulse(0);
        has_pulse_ = false;
    }
    if (!has_pulse_) symbols::wait_for_change(&seat_.bell->rings, rings, -1);
}

// False at the launcher's end.
bool Namer::hear_launcher() {
    const std::uint32_t words = seat_.work->words_to_namer.load();
    if (words == heard_) return true;
    heard_ = words;
    std::map<pid_t, link::Greeting> latest;
    bool is_there = true;
    pollfd ready = {seat_.launcher, POLLIN, 0};
    while (is_there && poll(&ready, 1, 0) > 0) {
        link::Greeting greeting;
        is_there = link::receive_greeting(seat_.launcher, greeting);
        if (is_there) std::swap(latest[greeting.pid], greeting);
        link::close_shares(greeting);
    }
    for (auto& [pid, greeting] : latest) {
        take_channel(pid, greeting.find(link::ShareKind::names));
        link::close_shares(greeting);
    }
    return is_there;
}

// -1: the process has none any more.
void Namer::take_channel(pid_t pid, int fd) {
    channels_.erase(pid);
    if (fd < 0) return;
    auto* channel = static_cast<NAME_CHANNEL*>(map_shared_memory(fd, sizeof(NAME_CHANNEL)));
    if (channel != nullptr) channels_[pid] = MappedChannel(channel);
}

// False when nobody had asked.
bool Namer::answer_all() {
    bool any = false;
    for (const auto& [pid, channel] : channels_) {
        for (NAME_SLOT& slot : channel->slots) {
            if (slot.state.load() != SLOT_STATE::ASKED) continue;
            answer(pid, slot);
            any = true;
        }
    }
    return any;
}

void Namer::answer(pid_t asker, NAME_SLOT& slot) {
    if (!has_pulse_) set_pulse(pulse_ms);
    has_pulse_ = true;
    const std::string asked(slot.text, std::min<std::size_t>(slot.size, sizeof slot.text));
    symbols::TEXT_READER reader(asked);
    symbols::NAME_QUESTION question;
    symbols::TEXT_WRITER writer;
    if (symbols::read_question(reader, question)) answer_question(asker, question, sizeof slot.text, writer);
    std::copy(writer.get().begin(), writer.get().end(), slot.text);
    slot.size = static_cast<std::uint32_t>(writer.size());
    slot.state.store(SLOT_STATE::ANSWERED);
    symbols::wake_waiting(&slot.state);
}

// Names that fill a slot by themselves are cut: no more of a text and no more levels than this.
constexpr std::size_t longest_text = 8192;

void make_fit(std::vector<symbols::FRAME>& levels, std::size_t room) {
    std::size_t used = 0;
    for (std::size_t i = 0; i < levels.size(); ++i) {
        symbols::FRAME& level = levels[i];
        level.file.resize(std::min(level.file.size(), longest_text));
        level.function.resize(std::min(level.function.size(), longest_text));
        used += level.file.size() + level.function.size() + 32;
        if (used > room) levels.resize(i);
    }
}

// As many answers as there is room for, behind their number.
void Namer::answer_question(pid_t asker, const symbols::NAME_QUESTION& question, std::size_t room,
                            symbols::TEXT_WRITER& writer) {
    ModuleNames& module = module_of(question, asker);
    symbols::TEXT_WRITER answers;
    std::uint32_t count = 0;
    for (const symbols::CODE_ADDRESS& address : question.addresses) {
        beats = 0;
        is_busy = 1;
        std::vector<symbols::FRAME> levels = module.find(address);
        is_busy = 0;
        make_fit(levels, room - 64);
        const std::size_t before = answers.size();
        symbols::write_levels(levels, answers);
        if (answers.size() + sizeof count > room) {
            answers.cut(before);
            break;
        }
        ++count;
    }
    writer.number(count);
    writer.append(answers.get());
}

ModuleNames& Namer::module_of(const symbols::NAME_QUESTION& question, pid_t asker) {
    const std::string key = question.path + '\n' + question.build_id;
    const auto found = modules_.find(key);
    if (found != modules_.end()) return found->second;
    ModuleNames& module =
        modules_.try_emplace(key, question, asker, *seat_.work, cache_.has_value() ? &*cache_ : nullptr)
            .first->second;
    if (table_) module.share_in(*table_);
    return module;
}

void Namer::list_modules() const {
    std::string list;
    for (const auto& [key, module] : modules_) list += module.path() + '\n';
    const ssize_t ignored = write(seat_.module_list, list.data(), list.size());
    static_cast<void>(ignored);
}

void Namer::save() {
    for (auto& [key, module] : modules_) module.save();
}

// The launcher's descriptors are not the namer's, and would keep memory and pipes alive.
void close_others(const NamerSeat& seat) {
    const auto [first, second] = std::minmax(seat.launcher, seat.module_list);
    close_range(STDERR_FILENO + 1, static_cast<unsigned>(first) - 1, 0);
    if (first + 1 < second)
        close_range(static_cast<unsigned>(first) + 1, static_cast<unsigned>(second) - 1, 0);
    close_range(static_cast<unsigned>(second) + 1, ~0U, 0);
}

// A process that was killed leaves no core for a file that it could not read, and is the first to go when
// memory gets scarce.
void bound_resources() {
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    const auto memory =
        static_cast<rlim_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    const rlimit half = {memory / 2, memory / 2};
    setrlimit(RLIMIT_DATA, &half);
    const int score = open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC);
    if (score < 0) return;
    const ssize_t ignored = write(score, "500", 3);
    static_cast<void>(ignored);
    close(score);
}

void set_helpers(const NamerSeat& seat) {
    if (!seat.fetches) return;
    prepare_fetching([] { beats = 0; });
    symbols::file_helpers.fetch_debug_file = fetch_debug_file;
}

// What the terminal sends is the program's and the launcher's business: names are wanted to the end.
void set_signals() {
    for (const int signo : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGXFSZ}) std::signal(signo, SIG_IGN);
    struct sigaction action = {};
    action.sa_handler = beat;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

void run_namer(const NamerSeat& seat) {
    prctl(PR_SET_NAME, "ktl_memrun_names");
    pulsing_bell = seat.bell;
    close_others(seat);
    set_signals();
    bound_resources();
    set_helpers(seat);
    try {
        Namer(seat).serve();
    } catch (...) {
        _exit(1);
    }
    _exit(0);
}

}  // namespace memrun::names
