#include "platform/unwind/call_frame.h"

#include <dlfcn.h>
#include <dwarf.h>
#include <link.h>

#include "platform/startup_modules.h"

namespace unwind {

namespace {

// The header of the search table, as linkers write it: a table of pairs of 32-bit offsets from the header.
constexpr std::uint8_t TABLE_OF_OFFSETS = DW_EH_PE_datarel | DW_EH_PE_sdata4;

struct MODULE {
    std::uint64_t begin = 0;
    const std::uint8_t* end = nullptr;
    const std::uint8_t* index = nullptr;

    bool holds(std::uint64_t address) const {
        return address >= begin && address < reinterpret_cast<std::uint64_t>(end);
    }
};

bool find_module(std::uint64_t address, MODULE* module) {
    if (const STARTUP_MODULE* known = startup_module_at(address)) {
        *module = {known->begin, reinterpret_cast<const std::uint8_t*>(known->end),
                   static_cast<const std::uint8_t*>(known->frame_index)};
        return true;
    }
    dl_find_object found;
    if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0) return false;
    *module = {reinterpret_cast<std::uint64_t>(found.dlfo_map_start),
               static_cast<const std::uint8_t*>(found.dlfo_map_end),
               static_cast<const std::uint8_t*>(found.dlfo_eh_frame)};
    return true;
}

struct TABLE_ROW {
    std::int32_t function;
    std::int32_t description;
};

struct SEARCH_TABLE {
    const std::uint8_t* header;
    const std::uint8_t* rows;
    std::uint64_t count;

    TABLE_ROW row(std::uint64_t index) const {
        TABLE_ROW result;
        std::memcpy(&result, rows + index * sizeof result, sizeof result);
        return result;
    }
};

bool open_search_table(const MODULE& module, SEARCH_TABLE* table) {
    const std::uint8_t* header = module.index;
    if (header == nullptr) return false;
    DWARF_READER reader({header, module.end});
    const auto version = reader.read<std::uint8_t>();
    const auto frame_encoding = reader.read<std::uint8_t>();
    const auto count_encoding = reader.read<std::uint8_t>();
    const auto table_encoding = reader.read<std::uint8_t>();
    if (version != 1 || count_encoding == DW_EH_PE_omit || table_encoding != TABLE_OF_OFFSETS) return false;
    reader.read_encoded_number(frame_encoding);
    table->header = header;
    table->count = reader.read_encoded_number(count_encoding);
    table->rows = reader.position();
    return !reader.failed() && table->count != 0;
}

// The description of the last function that begins at or below address.
const std::uint8_t* search(const SEARCH_TABLE& table, std::uint64_t address) {
    const auto wanted = static_cast<std::int64_t>(address - reinterpret_cast<std::uint64_t>(table.header));
    std::uint64_t low = 0;
    std::uint64_t high = table.count;
    while (low < high) {
        const std::uint64_t middle = low + (high - low) / 2;
        if (table.row(middle).function <= wanted) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low == 0 ? nullptr : table.header + table.row(low - 1).description;
}

// A record of .eh_frame without its length; empty when the format is not the 32-bit one.
BYTES record_at(const std::uint8_t* record, const void* limit) {
    DWARF_READER reader({record, static_cast<const std::uint8_t*>(limit)});
    const auto length = reader.read<std::uint32_t>();
    constexpr std::uint32_t WIDE = 0xffffffff;
    if (length == WIDE) return {};
    return reader.skip(length);
}

bool read_augmentation(DWARF_READER* reader, const char* letters, CALL_FRAME* frame) {
    if (*letters == 0) return true;
    if (*letters != 'z') return false;
    DWARF_READER data(reader->read_block());
    for (++letters; *letters != 0; ++letters) {
        switch (*letters) {
            case 'R':
                frame->address_encoding = data.read<std::uint8_t>();
                break;
            case 'P':
                data.read_encoded_number(data.read<std::uint8_t>());
                break;
            case 'L':
                data.read<std::uint8_t>();
                break;
            case 'S':
                frame->is_signal_frame = true;
                break;
            default:  // B and other flags without data
                break;
        }
    }
    return !data.failed();
}

bool read_common(BYTES record, CALL_FRAME* frame, bool* has_augmentation) {
    DWARF_READER reader(record);
    const auto id = reader.read<std::uint32_t>();
    const auto version = reader.read<std::uint8_t>();
    const auto* letters = reinterpret_cast<const char*>(reader.position());
    while (reader.read<std::uint8_t>() != 0) {
    }
    if (reader.failed() || id != 0 || (version != 1 && version != 3)) return false;
    frame->code_factor = reader.read_uleb();
    frame->data_factor = reader.read_sleb();
    frame->return_address_register = version == 1 ? reader.read<std::uint8_t>() : reader.read_uleb();
    *has_augmentation = *letters == 'z';
    if (!read_augmentation(&reader, letters, frame)) return false;
    frame->common_program = reader.rest();
    return !reader.failed();
}

bool read_function(const std::uint8_t* record, const void* limit, CALL_FRAME* frame) {
    DWARF_READER reader(record_at(record, limit));
    const std::uint8_t* here = reader.position();
    const auto distance = reader.read<std::uint32_t>();
    bool has_augmentation = false;
    if (reader.failed() || distance == 0) return false;
    if (!read_common(record_at(here - distance, limit), frame, &has_augmentation)) return false;
    frame->function_begin = reader.read_encoded(frame->address_encoding);
    frame->function_end = frame->function_begin + reader.read_encoded_number(frame->address_encoding);
    if (has_augmentation) reader.read_block();
    frame->function_program = reader.rest();
    return !reader.failed();
}

}  // namespace

bool find_call_frame(std::uint64_t address, CALL_FRAME* frame) {
    MODULE module;
    SEARCH_TABLE table;
    if (!find_module(address, &module) || !open_search_table(module, &table)) return false;
    const std::uint8_t* record = search(table, address);
    if (record == nullptr || !read_function(record, module.end, frame)) return false;
    frame->in_loader = module.holds(_r_debug.r_ldbase);
    return address >= frame->function_begin && address < frame->function_end;
}

}  // namespace unwind
