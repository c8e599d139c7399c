#include "platform/symbols/name_messages.h"

namespace symbols {

void write_question(const NAME_QUESTION& question, TEXT_WRITER& writer) {
    writer.text(question.path);
    writer.text(question.build_id);
    writer.number<std::uint8_t>(question.is_executable ? 1 : 0);
    writer.number(static_cast<std::uint32_t>(question.addresses.size()));
    for (const CODE_ADDRESS& address : question.addresses) {
        writer.number(address.in_file);
        writer.number<std::uint8_t>(address.is_behind_call ? 1 : 0);
    }
}

bool read_question(TEXT_READER& reader, NAME_QUESTION& question) {
    question.path = reader.text();
    question.build_id = reader.text();
    question.is_executable = reader.number<std::uint8_t>() != 0;
    question.addresses.clear();
    const auto count = reader.number<std::uint32_t>();
    for (std::uint32_t i = 0; i < count && reader.is_good(); ++i) {
        const auto in_file = reader.number<std::uint64_t>();
        const bool is_behind_call = reader.number<std::uint8_t>() != 0;
        question.addresses.push_back({in_file, is_behind_call});
    }
    return reader.is_good();
}

void write_levels(const std::vector<FRAME>& levels, TEXT_WRITER& writer) {
    writer.number(static_cast<std::uint32_t>(levels.size()));
    for (const FRAME& level : levels) {
        writer.text(level.file);
        writer.text(level.function);
        writer.number(level.line);
        writer.number<std::uint8_t>(level.offset ? 1 : 0);
        if (level.offset) writer.number(*level.offset);
    }
}

bool read_levels(TEXT_READER& reader, std::vector<FRAME>& levels) {
    levels.clear();
    const auto count = reader.number<std::uint32_t>();
    for (std::uint32_t i = 0; i < count && reader.is_good(); ++i) {
        FRAME& level = levels.emplace_back();
        level.file = reader.text();
        level.function = reader.text();
        level.line = reader.number<std::uint32_t>();
        if (reader.number<std::uint8_t>() != 0) level.offset = reader.number<std::uint64_t>();
    }
    return reader.is_good();
}

}  // namespace symbols
