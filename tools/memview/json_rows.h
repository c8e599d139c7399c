#pragma once

#include <nlohmann/json.hpp>

#include "tools/memview/model.h"

namespace memview {

// One row with the stable names of its columns; texts as text, addresses in hexadecimal.
nlohmann::ordered_json row_json(const Table& table, std::size_t row, const Names& names);

// As text. What is not UTF-8 becomes the replacement character.
std::string json_text(const nlohmann::ordered_json& value);

}  // namespace memview
