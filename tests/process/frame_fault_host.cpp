// A host that dies of a fault: frame_fault_host EVENT CALLBACK PLACE
// It has enabled exception handling, unless the environment tells it otherwise.
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// What the library asks its main program (docs/ending.md).
struct EXCEPTION_POINTERS;
extern "C" {
__attribute__((visibility("default"))) bool main_eh_enabled();
extern std::atomic<void (*)()> main_terminator_callback;
extern std::atomic<long (*)(EXCEPTION_POINTERS*)> main_seh_callback;
bool main_eh_enabled() {
    return std::getenv("FAULT_HOST_DISABLED") == nullptr;
}
}

namespace {

char* volatile nowhere = nullptr;
void* volatile page = nullptr;  // the handler of the fault reads it

void touch_memory() {
    *nowhere = 1;
}

volatile int depth_bound = 1 << 30;

int overflow(int depth) {  // NOLINT(misc-no-recursion): that is the point
    volatile char block[4096];
    block[0] = static_cast<char>(depth);
    return depth < depth_bound ? overflow(depth + 1) + block[0] : 0;
}

void touch_beyond_file() {
    std::FILE* const file = std::tmpfile();
    *static_cast<volatile char*>(mmap(nullptr, 4096, PROT_WRITE, MAP_SHARED, fileno(file), 0)) = 1;
}

void touch_page() {
    page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    *static_cast<volatile char*>(page) = 1;
    std::puts("went on");
}

void throw_lost() {
    throw std::runtime_error("lost");
}

void throw_out_of_noexcept() noexcept {
    throw_lost();
}

void run_event(const std::string& event) {
    volatile int numerator = 7, zero = 0;
    if (event == "read") touch_memory();
    if (event == "overflow") overflow(0);
    if (event == "bus") touch_beyond_file();
    if (event == "divide") zero = numerator / zero;  // NOLINT
    if (event == "illegal") __asm__ volatile("ud2");
    if (event == "sent") raise(SIGSEGV);
    if (event == "page") touch_page();
    if (event == "throw") throw_lost();
    if (event == "noexcept") throw_out_of_noexcept();
    if (event == "terminate") std::terminate();
    if (event == "abort") std::abort();
}

long repair_page(EXCEPTION_POINTERS*) {
    mprotect(page, 4096, PROT_READ | PROT_WRITE);
    return 0;
}

void set_callbacks(const std::string& name) {
    if (name == "return") {
        main_seh_callback = [](EXCEPTION_POINTERS*) { return std::fputs("callback\n", stderr) * 0L; };
        main_terminator_callback = [] { std::fputs("callback\n", stderr); };
    } else if (name == "fault") {
        main_seh_callback = [](EXCEPTION_POINTERS*) { return touch_memory(), 0L; };
        main_terminator_callback = touch_memory;
    } else if (name == "throw") {
        main_seh_callback = [](EXCEPTION_POINTERS*) -> long { throw 1; };
        main_terminator_callback = [] { throw 1; };
    } else if (name == "repair") {
        main_seh_callback = repair_page;
    } else if (name == "own") {  // a handler that the host installs for itself
        std::signal(SIGSEGV, [](int) { _exit(9); });
    }
}

void* start(void* event) {
    run_event(*static_cast<std::string*>(event));
    return nullptr;
}

}  // namespace

int main(int, char** arguments) {
    std::string event = arguments[1];
    const std::string place = arguments[3];
    set_callbacks(arguments[2]);
    std::atexit([] { std::fputs("exit action\n", stderr); });
    std::fputs("kept in the buffer\n", stdout);
    if (place == "main") {
        run_event(event);
    } else if (place == "std::thread") {
        std::thread(start, &event).join();
    } else if (place == "sixteen") {
        std::latch all_there(16);
        std::vector<std::jthread> threads;
        threads.reserve(16);
        for (int i = 0; i < 16; ++i)
            threads.emplace_back([&] { all_there.arrive_and_wait(), run_event(event); });
    } else {
        pthread_t thread;
        pthread_create(&thread, nullptr, start, &event);
        pthread_join(thread, nullptr);
    }
}
