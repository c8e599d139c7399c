#include "tools/memrun/names/name_service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <new>
#include <utility>

#include "platform/mapped_memory.h"
#include "platform/symbols/asked_names.h"

namespace memrun::names {

namespace {

constexpr std::uint32_t most_unheard_words = 32;

// How long the namer may take to write its cache.
constexpr int longest_farewell_ms = 5000;

void* anonymous_memory(std::size_t size) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

// The same memory, which cannot be mapped to write through this one.
int to_read_alone(int fd) {
    return open(("/proc/self/fd/" + std::to_string(fd)).c_str(), O_RDONLY | O_CLOEXEC);
}

void close_and_forget(int& fd) {
    if (fd >= 0) close(fd);
    fd = -1;
}

}  // namespace

NameService::NameService(link::EventLoop& loop, std::string cache_folder, bool fetches)
    : loop_(loop), bell_fd_(make_shared_memory("ktl_mem_bell", sizeof(symbols::NAME_BELL))) {
    seat_.cache_folder = std::move(cache_folder);
    seat_.fetches = fetches;
    seat_.bell = static_cast<symbols::NAME_BELL*>(map_shared_memory(bell_fd_, sizeof(symbols::NAME_BELL)));
    void* work = anonymous_memory(sizeof(WorkTable));
    if (work != nullptr) seat_.work = new (work) WorkTable;
    if (seat_.bell != nullptr) seat_.bell->mark = symbols::name_channel_mark;
    make_table();
    seat_.module_list = memfd_create("ktl_mem_modules", MFD_CLOEXEC);
}

void NameService::make_table() {
    int fd = make_shared_memory("ktl_mem_known_names", sizeof(symbols::NAME_TABLE));
    seat_.table = static_cast<symbols::NAME_TABLE*>(map_shared_memory(fd, sizeof(symbols::NAME_TABLE)));
    if (seat_.table != nullptr) {
        seat_.table->mark = symbols::name_table_mark;
        table_fd_ = to_read_alone(fd);
    }
    close_and_forget(fd);
}

NameService::~NameService() {
    finish();
    if (seat_.table != nullptr) munmap(seat_.table, sizeof *seat_.table);
    close_and_forget(table_fd_);
    if (seat_.bell != nullptr) munmap(seat_.bell, sizeof *seat_.bell);
    if (seat_.work != nullptr) munmap(seat_.work, sizeof *seat_.work);
    close_and_forget(bell_fd_);
    close_and_forget(seat_.module_list);
}

void NameService::on_arrival(const link::Guest& guest, link::Greeting& answer) {
    const std::lock_guard guard(mutex_);
    const int channel = guest.greeting.find(link::ShareKind::names);
    if (channel < 0 || seat_.bell == nullptr || seat_.work == nullptr || is_finished_) return;
    channels_[guest.pid] = channel;
    if (namer_ == 0)
        start_namer();
    else
        tell_namer(guest.pid, channel);
    if (namer_ == 0) return;
    answer.add(link::ShareKind::names_bell, bell_fd_);
    answer.add(link::ShareKind::known_names, table_fd_);
}

void NameService::on_departure(const link::Guest& guest) {
    const std::lock_guard guard(mutex_);
    if (channels_.erase(guest.pid) != 0) tell_namer(guest.pid, -1);
}

void NameService::serve_launcher() {
    const std::lock_guard guard(mutex_);
    if (own_channel_ >= 0 || seat_.bell == nullptr || seat_.work == nullptr || is_finished_) return;
    own_channel_ = make_shared_memory("ktl_mem_names", sizeof(symbols::NAME_CHANNEL));
    auto* const channel =
        static_cast<symbols::NAME_CHANNEL*>(map_shared_memory(own_channel_, sizeof(symbols::NAME_CHANNEL)));
    if (channel == nullptr) return;
    channel->mark = symbols::name_channel_mark;
    channels_[getpid()] = own_channel_;
    if (namer_ == 0)
        start_namer();
    else
        tell_namer(getpid(), own_channel_);
    if (namer_ != 0) symbols::use_name_channel(channel, seat_.bell, seat_.table);
}

void NameService::tell_namer(pid_t pid, int channel) const {
    link::Greeting greeting;
    greeting.pid = pid;
    greeting.add(link::ShareKind::names, channel);
    if (to_namer_ < 0) return;
    link::send_greeting(to_namer_, greeting);
    // Who asks rouses it; the socket must not get full of those who don't.
    if (++seat_.work->words_to_namer % most_unheard_words == 0) ring();
}

void NameService::rouse_namer() const {
    ++seat_.work->words_to_namer;
    ring();
}

void NameService::ring() const {
    ++seat_.bell->rings;
    symbols::wake_waiting(&seat_.bell->rings);
}

void NameService::start_namer() {
    int ends[2];
    if (starts_left_-- <= 0 || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
    namer_ = fork();
    if (namer_ == 0) {
        close(ends[0]);
        become_namer(ends[1]);
    }
    close(ends[1]);
    to_namer_ = ends[0];
    if (namer_ < 0) {
        namer_ = 0;
        close_and_forget(to_namer_);
        return;
    }
    link::limit_waits(to_namer_);
    namer_end_ = static_cast<int>(syscall(SYS_pidfd_open, namer_, 0));
    loop_.watch(namer_end_, [this] { on_namer_end(); });
    for (const auto& [pid, channel] : channels_) tell_namer(pid, channel);
}

void NameService::become_namer(int launcher) {
    // The socket ends with the launcher, but a namer that waits for its bell would not hear of it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    seat_.launcher = launcher;
    run_namer(seat_);
}

void NameService::on_namer_end() {
    const std::lock_guard guard(mutex_);
    if (namer_ == 0) return;
    loop_.forget(namer_end_);
    close_and_forget(namer_end_);
    close_and_forget(to_namer_);
    waitpid(std::exchange(namer_, 0), nullptr, 0);
    if (is_finished_) return;
    seat_.work->note_death();
    start_namer();
}

void NameService::finish() {
    const std::lock_guard guard(mutex_);
    is_finished_ = true;
    if (namer_ == 0) return;
    close_and_forget(to_namer_);
    rouse_namer();
    pollfd ended = {namer_end_, POLLIN, 0};
    if (poll(&ended, 1, longest_farewell_ms) == 0) kill(namer_, SIGKILL);
    waitpid(std::exchange(namer_, 0), nullptr, 0);
    loop_.forget(namer_end_);
    close_and_forget(namer_end_);
}

std::vector<std::string> NameService::modules() const {
    std::vector<std::string> paths;
    std::ifstream list("/proc/self/fd/" + std::to_string(seat_.module_list));
    for (std::string path; std::getline(list, path);) paths.push_back(path);
    return paths;
}

}  // namespace memrun::names
