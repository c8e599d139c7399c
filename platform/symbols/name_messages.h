// Questions about code and their answers as bytes, for a channel or a file. Readers take any bytes: what is
// cut or makes no sense ends in is_good() == false, and never in memory of others.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/symbol_services.h"

namespace symbols {

class TEXT_WRITER {
  public:
    template <class NUMBER>
    void number(NUMBER value) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void text(std::string_view value) {
        number(static_cast<std::uint32_t>(value.size()));
        bytes.append(value);
    }
    void append(std::string_view written) { bytes.append(written); }
    void cut(std::size_t size) { bytes.resize(size); }
    std::size_t size() const { return bytes.size(); }
    const std::string& get() const { return bytes; }

  private:
    std::string bytes;
};

class TEXT_READER {
  public:
    explicit TEXT_READER(std::string_view all) : rest(all) {}
    template <class NUMBER>
    NUMBER number() {
        NUMBER value{};
        if (!take(sizeof value)) return value;
        std::memcpy(&value, taken.data(), sizeof value);
        return value;
    }
    std::string_view text() {
        const auto size = number<std::uint32_t>();
        return take(size) ? taken : std::string_view();
    }
    bool is_good() const { return good; }

  private:
    bool take(std::size_t size) {
        good = good && size <= rest.size();
        if (!good) return false;
        taken = rest.substr(0, size);
        rest.remove_prefix(size);
        return true;
    }

    std::string_view rest;
    std::string_view taken;
    bool good = true;
};

// Questions about one module.
struct NAME_QUESTION {
    std::string path;      // of its file
    std::string build_id;  // raw bytes; empty when it has none
    bool is_executable = false;
    std::vector<CODE_ADDRESS> addresses;
};

void write_question(const NAME_QUESTION& question, TEXT_WRITER& writer);
bool read_question(TEXT_READER& reader, NAME_QUESTION& question);

// The levels of one address.
void write_levels(const std::vector<FRAME>& levels, TEXT_WRITER& writer);
bool read_levels(TEXT_READER& reader, std::vector<FRAME>& levels);

}  // namespace symbols
