#include "mem/frame/fatal_exit.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

#include "mem/frame/process_end.h"
#include "platform/ktl_main_globals.h"
#include "platform/standard_streams.h"
#include "platform/structured_exceptions.h"
#include "platform/thread.h"

namespace {

constexpr int fatal_exit_code = 2;

// Without the streams' locks where another thread keeps them, and without standard output where the fault has
// left it unusable: the line must come in any case.
[[noreturn]] void end_with(const char* text) {
    call_with_catch_all([](void*) { flush_without_hanging(stdout); }, nullptr, [] {});
    write_without_hanging(stderr, text);
    mem_terminate(fatal_exit_code);
}

void fail_to_complete() {
    end_with("\n*** Fatal Error: Failed to complete termination procedures\n");
}

void begin_termination() {
    if (main_terminate_called(true)) end_with("\n*** Internal Error: Recursive termination requested.\n");
}

// The thread that runs one of the two handlers, 0 for none.
std::atomic<std::uint32_t> handling_thread{0};

class HANDLING {
  public:
    HANDLING() {
        std::uint32_t none = 0;
        first = handling_thread.compare_exchange_strong(none, _Thrd_id());
    }
    ~HANDLING() {
        if (first) handling_thread.store(0);
    }
    HANDLING(const HANDLING&) = delete;
    HANDLING& operator=(const HANDLING&) = delete;

  private:
    bool first;
};

// A fault that is ignored ends the process by its signal. While another thread is about to end it in the
// known form, that would be too early; but a callback can also be waiting for this very thread, hence the
// bound.
void let_the_other_thread_finish() {
    constexpr std::chrono::milliseconds patience(5000), turn(1);
    for (auto waited = turn; waited < patience; waited += turn) {
        const std::uint32_t handling = handling_thread.load();
        if (handling == 0 || handling == _Thrd_id()) return;
        std::this_thread::sleep_for(turn);
    }
}

struct EVENT {
    EXCEPTION_POINTERS* pointers;
    long result;
};

void handle_structured_exception(void* argument) {
    auto& event = *static_cast<EVENT*>(argument);
    begin_termination();
    if (const auto callback = main_seh_callback.load()) {
        event.result = callback(event.pointers);
        return;
    }
    const int code =
        event.pointers == nullptr ? -1 : static_cast<int>(event.pointers->ExceptionRecord->ExceptionCode);
    char line[96];
    std::snprintf(line, sizeof line, "Fatal error: SE %d thrown. The Veldrin software will now exit.\n",
                  code);
    end_with(line);
}

void handle_terminate(void* /*argument*/) {
    begin_termination();
    if (const auto callback = main_terminator_callback.load()) {
        callback();
        return;
    }
    end_with("Fatal error: Program termination requested. The Veldrin software will now exit.\n");
}

}  // namespace

void mem_install_load_translator() {
    if (main_eh_enabled()) _set_se_translator(mem_se_translator);
}

void mem_install_thread_handlers() {
    if (!main_eh_enabled()) return;
    main_terminate_called(false);
    _set_se_translator(mem_se_translator);
    std::set_terminate(mem_terminate_handler);
}

void mem_run_entry_point(void (*work)()) {
    if (!main_eh_enabled()) {
        work();
        return;
    }
    try {
        work();
    } catch (...) {
        mem_terminate_handler();
    }
}

void mem_se_translator(unsigned /*code*/, EXCEPTION_POINTERS* pointers) {
    if (main_terminate_called(false)) {
        let_the_other_thread_finish();
        return;
    }
    mem_fatal_structured_exception(pointers);
}

long mem_fatal_structured_exception(EXCEPTION_POINTERS* pointers) {
    const HANDLING handling;
    EVENT event = {pointers, 0};
    call_with_catch_all(handle_structured_exception, &event, fail_to_complete);
    return event.result;
}

void mem_terminate_handler() {
    const HANDLING handling;
    call_with_catch_all(handle_terminate, nullptr, fail_to_complete);
}
