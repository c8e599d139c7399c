#pragma once

// Tables as JSON, written as they are gone through: a large run is never in memory a second time.

#include <nlohmann/json.hpp>
#include <ostream>
#include <string_view>

#include "tools/reports/model.h"

namespace memview {

// As text. What is not UTF-8 becomes the replacement character.
std::string json_text(const nlohmann::ordered_json& value);

// The member `"KEY": [...]` with an object for each row, by the stable names of the columns; texts as text,
// addresses in hexadecimal.
void write_rows(const Table& table, const Names& names, std::ostream& out);

}  // namespace memview
