// Names of code in memory that many processes read and one writes: what was named for one process is known to
// all others that run the same code, without a question.
//
// Slots lead to records, records to texts; both lie one behind the other and stay as they are. A slot is set
// when all that it leads to is written, so that readers need no lock, and a writer that is killed leaves a
// table with which the next one goes on. What does not fit is not entered. Nothing that is read in the memory
// is trusted: a damaged table gives other names, or none.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/symbol_services.h"

namespace symbols {

inline constexpr std::uint32_t name_table_mark = 0x6b747431;

// Takes no page of memory that is not written.
struct NAME_TABLE {
    static constexpr std::size_t slot_count = std::size_t{1} << 17;
    static constexpr std::size_t content_bytes = std::size_t{15} << 20;

    std::uint32_t mark;
    std::atomic<std::uint32_t> used;               // bytes of the content; the first eight hold nothing
    std::atomic<std::uint64_t> slots[slot_count];  // half of a record's hash above its place; 0: free
    std::byte content[content_bytes];
};

// For which addresses at a place of a file an answer holds. It matters at the start of a function alone.
enum class BEHIND : std::uint16_t { anything, call, no_call };

// What is known of a place, with that many levels behind it. The record of a module has number 0 for its
// module, and one level with path and build-id.
struct NAME_RECORD {
    std::uint64_t in_file;
    std::uint32_t module;
    std::uint16_t levels;
    BEHIND behind;
};

// As FRAME, but with texts that lie elsewhere.
struct LEVEL {
    std::string_view file;
    std::string_view function;
    std::uint32_t line = 0;
    std::optional<std::uint64_t> offset;
};

class NAME_TABLE_READER {
  public:
    // A record that is in the table; the place is 0 when there is none.
    struct FOUND {
        std::uint32_t place = 0;
        NAME_RECORD record{};
    };

    explicit NAME_TABLE_READER(const NAME_TABLE& all) : table(all) {}

    // The number under which the module's code is known; 0 when none of it is.
    std::uint32_t find_module(std::string_view path, std::string_view build_id) const;

    // `is_behind_call` is called only where it matters.
    template <class QUESTION>
    FOUND find(std::uint32_t module, std::uint64_t in_file, QUESTION is_behind_call) const {
        return find_if(hash_of(module, in_file), [&](const FOUND& found) {
            const NAME_RECORD& record = found.record;
            if (record.module != module || record.in_file != in_file) return false;
            return record.behind == BEHIND::anything ||
                   record.behind == (is_behind_call() ? BEHIND::call : BEHIND::no_call);
        });
    }

    // Of the levels of a record, innermost first, the one with that number.
    LEVEL level(const FOUND& found, std::size_t number) const;

  private:
    friend class NAME_TABLE_WRITER;
    static constexpr std::size_t longest_search = 64;

    static std::uint64_t mixed(std::uint64_t bits) {
        bits = (bits ^ bits >> 32) * 0x9e3779b97f4a7c15U;
        return bits ^ bits >> 29;
    }
    static std::uint64_t hash_of(std::uint32_t module, std::uint64_t in_file) {
        return mixed(mixed(in_file) + module);
    }
    static std::uint64_t hash_of(std::string_view path, std::string_view build_id);

    template <class CONDITION>
    FOUND find_if(std::uint64_t hash, CONDITION is_wanted) const {
        for (std::size_t i = 0; i < longest_search; ++i) {
            const std::uint64_t slot =
                table.slots[(hash + i) % NAME_TABLE::slot_count].load(std::memory_order_acquire);
            if (slot == 0) break;
            if (slot >> 32 != hash >> 32) continue;
            const FOUND found = record_at(static_cast<std::uint32_t>(slot));
            if (found.place != 0 && is_wanted(found)) return found;
        }
        return {};
    }
    FOUND record_at(std::uint32_t place) const;
    std::string_view text_at(std::uint32_t place) const;

    const NAME_TABLE& table;
};

// One at a time, of all processes.
class NAME_TABLE_WRITER {
  public:
    explicit NAME_TABLE_WRITER(NAME_TABLE& all) : table(all), reader(all) {}

    // The module's number; 0 when there is no room.
    std::uint32_t enter_module(std::string_view path, std::string_view build_id);
    // Enters what is not there yet.
    void enter(std::uint32_t module, std::uint64_t in_file, BEHIND behind, const std::vector<FRAME>& levels);

    bool is_half_full() const { return table.used.load() > NAME_TABLE::content_bytes / 2; }

  private:
    std::uint32_t take(std::size_t bytes);
    std::uint32_t enter_text(std::string_view text);
    std::atomic<std::uint64_t>* free_slot(std::uint64_t hash);
    void enter_record(std::uint64_t hash, const NAME_RECORD& record, const std::vector<LEVEL>& levels);

    NAME_TABLE& table;
    const NAME_TABLE_READER reader;
    std::unordered_map<std::string, std::uint32_t> texts;  // that this writer has entered
};

}  // namespace symbols
