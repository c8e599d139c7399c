// What somebody wants of a run.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace memrun::control {

enum class Wish { status, paths, top, checkpoint, mark, start, stop, reset };

struct Request {
    Wish wish = Wish::status;
    std::string name;                 // of a mark
    std::uint64_t timeout_ms = 5000;  // for what the program itself has to do
    bool interrupt = false;           // a program that makes no event meanwhile
    bool is_automatic = false;        // the launcher's own
};

using Answer = nlohmann::json;
using Reply = std::function<void(const Answer&)>;

Answer refusal(const std::string& why);

// One line of the control socket; none, with the reason, when it makes no sense.
std::optional<Request> parse_request(const std::string& line, std::string& why);

}  // namespace memrun::control
