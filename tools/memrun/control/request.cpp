#include "tools/memrun/control/request.h"

#include <algorithm>
#include <utility>

namespace memrun::control {

namespace {

constexpr std::pair<const char*, Wish> wishes[] = {
    {"status", Wish::status}, {"paths", Wish::paths}, {"top", Wish::top},   {"checkpoint", Wish::checkpoint},
    {"mark", Wish::mark},     {"start", Wish::start}, {"stop", Wish::stop}, {"reset", Wish::reset}};

constexpr std::uint64_t longest_timeout_ms = 24ULL * 3600 * 1000;
constexpr std::size_t longest_name = 100;

bool is_folder_name(const std::string& name) {
    return !name.empty() && name.size() <= longest_name && name.front() != '.' &&
           std::all_of(name.begin(), name.end(),
                       [](unsigned char c) { return c > ' ' && c != '/' && c != 127; });
}

}  // namespace

Answer refusal(const std::string& why) {
    return {{"ok", false}, {"error", why}};
}

std::optional<Request> parse_request(const std::string& line, std::string& why) try {
    const Answer said = Answer::parse(line);
    Request request;
    const std::string order = said.value("order", "");
    const auto known = std::find_if(std::begin(wishes), std::end(wishes),
                                    [&](const auto& one) { return one.first == order; });
    if (known == std::end(wishes)) return why = "unknown order '" + order + "'", std::nullopt;
    request.wish = known->second;
    request.name = said.value("name", "");
    request.timeout_ms = std::min(said.value("timeout_ms", request.timeout_ms), longest_timeout_ms);
    request.interrupt = said.value("interrupt", false);
    if (request.wish == Wish::mark && !is_folder_name(request.name))
        return why = "'" + request.name +
                     "' is no name for a mark: give up to 100 characters without blanks and '/', the first "
                     "of them no '.'",
               std::nullopt;
    return request;
} catch (const Answer::exception&) {
    return why = "no request", std::nullopt;
}

}  // namespace memrun::control
