// The formatter against snprintf into a string and against fmt, on formats as tools write them.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <string>

#include "ktl_mem/format.h"

namespace {

void by_stl_output(std::string& text, const char* format, ...) {
    va_list args;
    va_start(args, format);
    stl_output(&text, format, args);
    va_end(args);
}

void by_stl_raw_sprintf(std::string& text, const char* format, ...) {
    va_list args;
    va_start(args, format);
    stl_vsprintf(&text, format, args);
    va_end(args);
}

// What programs write around snprintf: one try in a buffer, a second one in the string for long text.
void by_snprintf(std::string& text, const char* format, ...) {
    char buffer[512];
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    const int length = std::vsnprintf(buffer, sizeof(buffer), format, args);
    if (static_cast<std::size_t>(length) < sizeof(buffer)) {
        text.append(buffer, static_cast<std::size_t>(length));
    } else {
        const std::size_t begin = text.size();
        text.resize(begin + static_cast<std::size_t>(length));
        std::vsnprintf(text.data() + begin, static_cast<std::size_t>(length) + 1, format, again);
    }
    va_end(again);
    va_end(args);
}

// fmt reads formats of its own, in which it is faster than in those of printf.
template <class... ARGS>
void by_fmt(std::string& text, fmt::format_string<ARGS...> format, ARGS&&... args) {
    fmt::format_to(std::back_inserter(text), format, std::forward<ARGS>(args)...);
}

const std::string long_name(2000, 'n');
int number = 4711;
double seconds = 12.3456789;
const char* name = "solver/assemble.cpp";

template <class CALL>
void measure(benchmark::State& state, CALL call) {
    std::string text;
    text.reserve(4096);
    for (auto _ : state) {
        text.clear();
        benchmark::DoNotOptimize(number);
        benchmark::DoNotOptimize(name);
        benchmark::DoNotOptimize(seconds);
        call(text);
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
    }
}

// clang-format off
#define COMPARE_ONE(subject, way, format, ...) \
    BENCHMARK_CAPTURE(measure, subject/way, [](std::string& text) { by_##way(text, format, __VA_ARGS__); })
#define COMPARE(subject, fmt_format, printf_format, ...)                    \
    COMPARE_ONE(subject, stl_output, printf_format, __VA_ARGS__);           \
    COMPARE_ONE(subject, stl_raw_sprintf, printf_format, __VA_ARGS__);      \
    COMPARE_ONE(subject, snprintf, printf_format, __VA_ARGS__);             \
    COMPARE_ONE(subject, fmt, fmt_format, __VA_ARGS__)

COMPARE(one_number, "{}", "%d", number);
COMPARE(text_and_number, "{}:{}", "%s:%d", name, number);
COMPARE(message, "block {} of {} in {} takes {} bytes", "block %d of %d in %s takes %d bytes", number, 5000, name, 123456);
COMPARE(aligned_row, "{:<30} {:>10} {:>10}", "%-30s %10d %10d", name, number, 123456);
COMPARE(hexadecimal, "{:016x} {:#x}", "%016x %#x", number, number);
COMPARE(float_3_places, "{:.3f} s", "%.3f s", seconds);
COMPARE(long_text, "{} {}", "%s %d", long_name.c_str(), number);
// clang-format on

}  // namespace

BENCHMARK_MAIN();
