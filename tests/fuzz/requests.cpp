#include "tests/fuzz/targets.h"
#include "tools/memrun/control/request.h"

namespace fuzz {

namespace {

void take(Bytes bytes) {
    std::string why;
    const auto request = memrun::control::parse_request(text_of(bytes), why);
    require(request.has_value() || !why.empty(), "a refusal has a reason");
    if (request && request->wish == memrun::control::Wish::mark)
        require(request->name.find('/') == std::string::npos && request->name.front() != '.',
                "a mark's name stays in its folder");
    // The answer goes out as JSON.
    if (!request)
        memrun::control::refusal(why).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::vector<std::string> seeds() {
    return {R"({"order":"mark","name":"after-load","timeout_ms":100,"interrupt":true})",
            R"({"order":"status"})", R"({"order":"mark","name":".."})",
            R"({"order":7,"name":[],"timeout_ms":1e99})"};
}

}  // namespace

const Target requests = {"requests", take, seeds};

}  // namespace fuzz
