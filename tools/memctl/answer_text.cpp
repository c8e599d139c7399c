#include "tools/memctl/answer_text.h"

#include "tools/common/harmless.h"
#include "tools/common/shell_word.h"
#include "tools/memrun/units.h"

namespace memctl {

namespace {

using memrun::bytes_text;
using memrun::count_text;
using memrun::seconds_text;
using nlohmann::json;

std::string name_of(const json& process) {
    return harmless(process.value("word", "")) + " (" + std::to_string(process.value("pid", 0)) + ")";
}

std::int64_t number(const json& from, const char* key) {
    return from.value(key, std::int64_t{0});
}

std::string joined(const json& words) {
    std::string text;
    for (const json& word : words) text += (text.empty() ? "" : ", ") + word.get<std::string>();
    return text.empty() ? "nothing" : text;
}

std::string figures_text(const json& process) {
    if (!process.contains("events")) return "  has made no allocation that was tracked\n";
    std::string text = "  holds     " + bytes_text(number(process, "current_bytes")) + " in " +
                       count_text(number(process, "current_blocks")) + " blocks, at most " +
                       bytes_text(number(process, "peak_bytes")) + "\n";
    text += "  events    " + count_text(number(process, "events"));
    const double silence = process.value("seconds_since_event", 0.0);
    if (silence >= 0.5) text += ", the last one " + seconds_text(silence) + " ago";
    text += "\n  tracks    " + joined(process.value("tracking", json::array()));
    if (process.value("began_anew", false)) text += "; began anew by an order";
    return text + "\n  tracker   " + bytes_text(number(process, "tracker_bytes")) + " of its own\n";
}

std::string status_text(const json& answer) {
    std::string text;
    for (const json& process : answer.value("processes", json::array())) {
        text += name_of(process) + " for " + seconds_text(process.value("seconds", 0.0)) + ", " +
                bytes_text(number(process, "resident_bytes")) + " resident\n" + figures_text(process);
    }
    if (text.empty()) text = "no tracked process runs just now\n";
    if (answer.contains("seconds_since_checkpoint"))
        text += "checkpoint  " + seconds_text(answer.value("seconds_since_checkpoint", 0.0)) + " ago\n";
    if (answer.contains("memory")) {
        const json& memory = answer.at("memory");
        text += "memory      " + std::to_string(number(memory, "used_percent")) + " % of " +
                memory.value("limit", "") + ", " + bytes_text(number(memory, "limit_bytes")) + "\n";
    }
    return text;
}

std::string done_text(const std::string& order) {
    if (order == "start") return "is tracked from now on";
    if (order == "stop") return "is not tracked any more";
    if (order == "reset") return "is tracked anew";
    return "has written its reports";
}

std::string order_text(const std::string& order, const json& answer) {
    std::string text;
    for (const json& process : answer.value("processes", json::array()))
        text += name_of(process) + " " +
                (process.value("done", false) ? done_text(order) : process.value("error", "")) + "\n";
    if (answer.contains("folder")) {
        const auto folder = answer.value("folder", "");
        text += "reports     " + harmless(folder) + "\nnext        ktl_memview show " +
                harmless(shell_word(folder)) + "\n";
    }
    return text;
}

}  // namespace

std::string answer_text(const std::string& order, const json& answer) {
    return order == "status" ? status_text(answer) : order_text(order, answer);
}

}  // namespace memctl
