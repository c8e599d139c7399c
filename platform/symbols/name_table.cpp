#include "platform/symbols/name_table.h"

#include <algorithm>
#include <cstring>

namespace symbols {
namespace {

struct STORED_LEVEL {
    std::uint32_t file;  // places of texts, behind their sizes; 0 for an empty one
    std::uint32_t function;
    std::uint32_t line;
    std::uint32_t has_offset;
    std::uint64_t offset;
};

constexpr std::size_t most_levels = 1024;

// Whether so many bytes lie in the content.
bool lies_inside(std::uint32_t place, std::size_t bytes) {
    return place < NAME_TABLE::content_bytes && bytes <= NAME_TABLE::content_bytes - place;
}

template <class VALUE>
VALUE value_at(const NAME_TABLE& table, std::size_t place) {
    VALUE value;
    std::memcpy(&value, table.content + place, sizeof value);
    return value;
}

}  // namespace

std::uint64_t NAME_TABLE_READER::hash_of(std::string_view path, std::string_view build_id) {
    std::uint64_t hash = build_id.size();
    for (const std::string_view text : {path, build_id})
        for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    return mixed(hash);
}

NAME_TABLE_READER::FOUND NAME_TABLE_READER::record_at(std::uint32_t place) const {
    if (!lies_inside(place, sizeof(NAME_RECORD))) return {};
    const auto record = value_at<NAME_RECORD>(table, place);
    return lies_inside(place, sizeof record + record.levels * sizeof(STORED_LEVEL)) ? FOUND{place, record}
                                                                                    : FOUND{};
}

std::string_view NAME_TABLE_READER::text_at(std::uint32_t place) const {
    if (place == 0 || !lies_inside(place, sizeof(std::uint32_t))) return {};
    const auto size = value_at<std::uint32_t>(table, place);
    if (!lies_inside(place, sizeof size + size)) return {};
    return {reinterpret_cast<const char*>(table.content) + place + sizeof size, size};
}

LEVEL NAME_TABLE_READER::level(const FOUND& found, std::size_t number) const {
    const auto stored =
        value_at<STORED_LEVEL>(table, found.place + sizeof(NAME_RECORD) + number * sizeof(STORED_LEVEL));
    LEVEL level{text_at(stored.file), text_at(stored.function), stored.line, std::nullopt};
    if (stored.has_offset != 0) level.offset = stored.offset;
    return level;
}

std::uint32_t NAME_TABLE_READER::find_module(std::string_view path, std::string_view build_id) const {
    const auto is_it = [&](const FOUND& found) {
        if (found.record.module != 0 || found.record.levels != 1) return false;
        const LEVEL own = level(found, 0);
        return own.file == path && own.function == build_id;
    };
    return find_if(hash_of(path, build_id), is_it).place;
}

// Places are multiples of eight; 0 when there is no room.
std::uint32_t NAME_TABLE_WRITER::take(std::size_t bytes) {
    const std::uint32_t place = std::max<std::uint32_t>(table.used.load(), 8);
    const std::size_t whole = (bytes + 7) / 8 * 8;
    if (!lies_inside(place, whole)) return 0;
    table.used.store(static_cast<std::uint32_t>(place + whole));
    return place;
}

std::uint32_t NAME_TABLE_WRITER::enter_text(std::string_view text) {
    if (text.empty()) return 0;
    const auto [known, is_new] = texts.try_emplace(std::string(text), 0);
    if (!is_new) return known->second;
    const auto size = static_cast<std::uint32_t>(text.size());
    known->second = take(sizeof size + size);
    if (known->second == 0) return 0;
    std::memcpy(table.content + known->second, &size, sizeof size);
    std::memcpy(table.content + known->second + sizeof size, text.data(), size);
    return known->second;
}

std::atomic<std::uint64_t>* NAME_TABLE_WRITER::free_slot(std::uint64_t hash) {
    for (std::size_t i = 0; i < NAME_TABLE_READER::longest_search; ++i) {
        std::atomic<std::uint64_t>& slot = table.slots[(hash + i) % NAME_TABLE::slot_count];
        if (slot.load() == 0) return &slot;
    }
    return nullptr;
}

void NAME_TABLE_WRITER::enter_record(std::uint64_t hash, const NAME_RECORD& record,
                                     const std::vector<LEVEL>& levels) {
    std::atomic<std::uint64_t>* const slot = free_slot(hash);
    if (slot == nullptr) return;
    std::vector<STORED_LEVEL> stored;
    for (const LEVEL& level : levels) {
        stored.push_back({enter_text(level.file), enter_text(level.function), level.line,
                          level.offset ? 1U : 0U, level.offset.value_or(0)});
        // A text that finds no room must not be taken for an empty one.
        if ((stored.back().file == 0) != level.file.empty() ||
            (stored.back().function == 0) != level.function.empty())
            return;
    }
    const std::uint32_t place = take(sizeof record + stored.size() * sizeof(STORED_LEVEL));
    if (place == 0) return;
    std::memcpy(table.content + place, &record, sizeof record);
    std::byte* to = table.content + place + sizeof record;
    for (const STORED_LEVEL& level : stored) {
        std::memcpy(to, &level, sizeof level);
        to += sizeof level;
    }
    slot->store(hash >> 32 << 32 | place, std::memory_order_release);
}

std::uint32_t NAME_TABLE_WRITER::enter_module(std::string_view path, std::string_view build_id) {
    if (const std::uint32_t known = reader.find_module(path, build_id)) return known;
    enter_record(NAME_TABLE_READER::hash_of(path, build_id), {0, 0, 1, BEHIND::anything},
                 {{path, build_id, 0, std::nullopt}});
    return reader.find_module(path, build_id);
}

void NAME_TABLE_WRITER::enter(std::uint32_t module, std::uint64_t in_file, BEHIND behind,
                              const std::vector<FRAME>& levels) {
    const auto is_behind_call = [behind] { return behind != BEHIND::no_call; };
    if (module == 0 || levels.size() > most_levels || reader.find(module, in_file, is_behind_call).place != 0)
        return;
    std::vector<LEVEL> views;
    views.reserve(levels.size());
    for (const FRAME& frame : levels) views.push_back({frame.file, frame.function, frame.line, frame.offset});
    enter_record(NAME_TABLE_READER::hash_of(module, in_file),
                 {in_file, module, static_cast<std::uint16_t>(levels.size()), behind}, views);
}

}  // namespace symbols
