// The launcher's answers as people read them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace memctl {

// Lines with their ends.
std::string answer_text(const std::string& order, const nlohmann::json& answer);

}  // namespace memctl
