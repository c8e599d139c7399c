#include "mem/base/configured_number.h"

#include <stdexcept>

#include "mem/base/messages.h"

namespace {

// A number in the configuration must never end a host at its start, so what the conversions throw stops here.
template <class CONVERT>
auto parse(const char* key, const std::string& text, CONVERT convert) -> std::optional<decltype(convert())> {
    try {
        return convert();
    } catch (const std::logic_error& error) {
        mem_msg_debug("ignoring \"%s\" of %s: %s; the default stays in force", text.c_str(), key,
                      error.what());
        return std::nullopt;
    }
}

}  // namespace

std::optional<unsigned long long> mem_parse_configured_unsigned(const char* key, const std::string& text) {
    return parse(key, text, [&] { return std::stoull(text, nullptr, 10); });
}

std::optional<int> mem_parse_configured_int(const char* key, const std::string& text, int base) {
    return parse(key, text, [&] { return std::stoi(text, nullptr, base); });
}
