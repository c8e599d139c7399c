// Fuzzes stl_output with any bytes as a format. Every pointer argument is null or points to one page that
// can be read as narrow text, wide text and counted record, and be written to; taken as a width or
// precision it is 4096. Behind the page nothing is mapped.
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "formatted.h"

namespace {

constexpr std::size_t page_size = 4096;

char* map_page() {
    void* wanted = reinterpret_cast<void*>(0x200000001000);
    void* page = mmap(wanted, page_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page != wanted) std::abort();
    return static_cast<char*>(page);
}

// The text lies at the page's end, so that reading past it is noticed.
void* prepare_argument(const std::string& format) {
    static char* page = map_page();
    std::memset(page, 0, page_size);
    const STL_COUNTED_STRING record{24, 24, page + page_size - 24};
    std::memcpy(page, &record, sizeof(record));
    std::size_t taken = std::min<std::size_t>(format.size(), 24);
    std::memcpy(page + page_size - 24, format.data(), taken);
    return page;
}

// What n stores changes the length that Z would read.
bool spoils_record(const std::string& format) {
    return format.find('n') != std::string::npos && format.find('Z') != std::string::npos;
}

// A field of a million characters finds nothing that one of a few thousand does not, and is slow.
bool has_long_number(const std::string& format) {
    const auto is_digit = [](char character, int) { return character >= '0' && character <= '9'; };
    return std::search_n(format.begin(), format.end(), 6, 0, is_digit) != format.end();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    constexpr std::size_t numbers = 4;
    if (size < numbers * sizeof(double) + 1 || size > 200) return 0;
    double number[numbers];
    std::memcpy(number, data, sizeof(number));
    unsigned nulls = data[sizeof(number)];
    std::string format(data + sizeof(number) + 1, data + size);
    // No more arguments of either kind are passed.
    auto takers = std::count_if(format.begin(), format.end(),
                                [](char c) { return std::strchr("*BCEGSXZcdefginopsux", c) != nullptr; });
    if (has_long_number(format) || spoils_record(format) || takers > 8) return 0;

    void* page = prepare_argument(format);
    void* argument[8];
    for (unsigned i = 0; i < 8; ++i) argument[i] = (nulls >> i & 1) != 0 ? nullptr : page;
    std::string text = "kept";
    int count = append(&text, format.c_str(), argument[0], argument[1], argument[2], argument[3], argument[4],
                       argument[5], argument[6], argument[7], number[0], number[1], number[2], number[3],
                       number[0], number[1], number[2], number[3]);
    if (text.compare(0, 4, "kept") != 0 || static_cast<std::size_t>(count) != text.size() - 4) std::abort();
    return 0;
}
