#include "tools/memview/json_rows.h"

#include "tools/memview/units.h"

namespace memview {

nlohmann::ordered_json row_json(const Table& table, std::size_t row, const Names& names) {
    nlohmann::ordered_json object;
    for (const Column& column : table.columns) {
        const std::int64_t value = column.cells[row];
        if (column.spec.unit == Unit::text) {
            object[column.spec.key] = names.text(value);
        } else if (column.spec.unit == Unit::address) {
            object[column.spec.key] = hex_address(value);
        } else {
            object[column.spec.key] = value;
        }
    }
    return object;
}

std::string json_text(const nlohmann::ordered_json& value) {
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace memview
