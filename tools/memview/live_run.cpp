#include "tools/memview/live_run.h"

#include <algorithm>
#include <chrono>

#include "tools/memview/units.h"

namespace memview {
namespace {

using nlohmann::json;

constexpr std::uint64_t answer_ms = 30'000;
constexpr std::uint64_t order_ms = 2000;

std::int64_t now_ms() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

std::int64_t number(const json& from, const char* key) {
    return from.value(key, std::int64_t{0});
}

std::string memory_text(const json& answer) {
    if (!answer.contains("memory")) return "";
    const json& memory = answer.at("memory");
    return std::to_string(number(memory, "used_percent")) + " % of " + memory.value("limit", "") + ", " +
           human_bytes(number(memory, "limit_bytes"));
}

}  // namespace

LiveLook LiveRun::look() {
    const json answer = json::parse(launcher_.ask(R"({"order":"top"})", answer_ms));
    LiveLook look;
    std::int64_t events = 0;
    for (const json& process : answer.value("processes", json::array())) {
        look.processes.push_back(process.value("word", "") + " (" + std::to_string(number(process, "pid")) +
                                 ")");
        look.resident += number(process, "resident_bytes");
        look.bytes += number(process, "current_bytes");
        look.blocks += number(process, "current_blocks");
        look.peak += number(process, "peak_bytes");
        events += number(process, "events");
        look.seconds_since_event =
            std::max(look.seconds_since_event, process.value("seconds_since_event", 0.0));
        take_sites(process, look);
    }
    look.memory = memory_text(answer);
    const std::int64_t now = now_ms();
    if (events_before_ >= 0 && now > looked_ms_)
        look.events_per_second =
            static_cast<double>(events - events_before_) * 1000 / static_cast<double>(now - looked_ms_);
    events_before_ = events;
    looked_ms_ = now;
    bytes_before_ = std::move(bytes_now_);
    bytes_now_.clear();
    std::stable_sort(look.sites.begin(), look.sites.end(),
                     [](const LiveSite& a, const LiveSite& b) { return a.bytes > b.bytes; });
    return look;
}

// What a site held at the look before, by its place and function: a site that was not among the highest then
// counts as new.
void LiveRun::take_sites(const json& process, LiveLook& look) {
    if (!process.contains("sites")) return;
    look.knows_sites = true;
    for (const json& said : process.at("sites")) {
        LiveSite site;
        site.place = harmless(said.value("place", ""));
        site.function = harmless(said.value("function", ""));
        site.bytes = number(said, "bytes");
        site.blocks = number(said, "blocks");
        const std::string key = site.place + "\t" + site.function;
        bytes_now_[key] += site.bytes;
        const auto before = bytes_before_.find(key);
        site.change =
            bytes_before_.empty() ? 0 : site.bytes - (before == bytes_before_.end() ? 0 : before->second);
        look.sites.push_back(std::move(site));
    }
}

std::string LiveRun::order(const std::string& order, const std::string& name) {
    const json request = {{"order", order}, {"name", name}, {"timeout_ms", order_ms}};
    const json answer = json::parse(launcher_.ask(request.dump(), answer_ms));
    if (answer.value("ok", false)) return "written to " + answer.value("folder", "");
    return answer.value("error", "the launcher gave no reason");
}

}  // namespace memview
