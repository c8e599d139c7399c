#include "tools/reports/leak_reader.h"

#include <array>

#include "tools/reports/fields.h"
#include "tools/reports/line_reader.h"
#include "tools/reports/report_kinds.h"
#include "tools/reports/report_parts.h"

namespace memview {
namespace {

constexpr std::string_view program_end = " memory leak summary";
constexpr std::string_view rule = "===============================";

// The digits at the start of `text`, which are taken off; false when there are none or `then` does not
// follow.
bool take_number(std::string_view& text, std::string_view then, std::int64_t& value) {
    const std::size_t digits = text.find_first_not_of("-0123456789");
    if (digits == std::string_view::npos || !parse_number(text.substr(0, digits), value)) return false;
    text.remove_prefix(digits);
    if (!text.starts_with(then)) return false;
    text.remove_prefix(then.size());
    return true;
}

// "MODULE leaked N bytes in N object(s) allocated at FILE:LINE FUNCTION". A name may hold such words itself,
// so each split is taken where the numbers fit.
bool parse_leak(std::string_view line, Names& names, std::array<std::int64_t, 6>& row) {
    constexpr std::string_view word_leaked = " leaked ";
    for (std::size_t at = line.find(word_leaked); at != std::string_view::npos;
         at = line.find(word_leaked, at + 1)) {
        std::string_view rest = line.substr(at + word_leaked.size());
        std::int64_t bytes = 0;
        std::int64_t blocks = 0;
        if (!take_number(rest, " bytes in ", bytes)) continue;
        if (!take_number(rest, " object(s) allocated at ", blocks)) continue;
        for (std::size_t colon = rest.find(':'); colon != std::string_view::npos;
             colon = rest.find(':', colon + 1)) {
            std::string_view behind = rest.substr(colon + 1);
            std::int64_t number = 0;
            if (!take_number(behind, " ", number)) continue;
            row = {names.id_of(line.substr(0, at)),    bytes,  blocks,
                   names.id_of(rest.substr(0, colon)), number, names.id_of(behind)};
            return true;
        }
    }
    return false;
}

class LeakReader {
  public:
    LeakReader(const std::string& path, Names& names, Problems& problems)
        : reader_(path), names_(names), problems_(problems) {}

    void read(std::vector<Table>& tables) {
        std::string_view line;
        if (!reader_.next(line)) throw ReportError({reader_.path(), 0, "the file is empty"});
        if (line == mem_report::leaks.title) {
            tables.push_back(read_full());
            if (!reader_.next(line)) return;
        } else if (line == fast_leak_head) {
            expect_empty();
            if (!reader_.next(line)) throw wrong("the file is cut: it holds no summary");
        } else if (!line.ends_with(program_end)) {
            throw wrong("not this kind of report: it begins with " + in_quotes(line));
        }
        tables.push_back(read_fast(line));
    }

  private:
    ReportError wrong(const std::string& reason) const {
        return ReportError({reader_.path(), reader_.number(), reason});
    }

    void expect_empty() {
        std::string_view line;
        if (!reader_.next(line) || !line.empty()) throw wrong("an empty line expected");
    }

    Table read_full() {
        Table table = empty_table("leaks", reader_.path(), leak_columns);
        expect_empty();
        std::string_view line;
        std::array<std::int64_t, 6> row{};
        while (reader_.next(line)) {
            if (line.empty()) {
                read_total(table);
                return table;
            }
            if (!reader_.terminated()) break;
            if (parse_leak(line, names_, row)) {
                add_row(reader_, row, table);
                continue;
            }
            problems_.add({reader_.path(), reader_.number(), "no leak row: " + in_quotes(line)});
        }
        problems_.add({reader_.path(), reader_.number(), "the file is cut: its total is missing"});
        return table;
    }

    void read_total(const Table& table) {
        constexpr std::string_view total_label = "Total leaked bytes: ";
        std::string_view line;
        std::int64_t total = 0;
        if (!reader_.next(line) || !line.starts_with(total_label) ||
            !parse_number(line.substr(total_label.size()), total)) {
            problems_.add({reader_.path(), reader_.number(), "the file is cut: its total is missing"});
        } else if (!reader_.terminated()) {
            problems_.add({reader_.path(), reader_.number(), "the file is cut in its total"});
        } else if (total != table.sum("current")) {
            problems_.add({reader_.path(), reader_.number(),
                           "the total is " + std::to_string(total) + ", but its rows hold " +
                               std::to_string(table.sum("current"))});
        }
    }

    // Takes "LABEL  N" and gives N.
    bool read_figure(std::string_view label, std::int64_t& value) {
        std::string_view line;
        if (!reader_.next(line) || !line.starts_with(label)) return false;
        line.remove_prefix(label.size());
        line.remove_prefix(std::min(line.size(), line.find_first_not_of(' ')));
        return parse_number(line, value);
    }

    bool read_rule() {
        std::string_view line;
        return reader_.next(line) && line == rule;
    }

    Table read_fast(std::string_view first) {
        Table table = empty_table("fast_leaks", reader_.path(), fast_leak_columns);
        std::string_view line = first;
        do {
            if (line.empty() || line == fast_leak_head)
                continue;  // two processes may both have made the file
            if (!line.ends_with(program_end))
                throw wrong("the start of a summary expected, found " + in_quotes(line));
            const std::int64_t program = names_.id_of(line.substr(0, line.size() - program_end.size()));
            std::int64_t leaked = 0;
            std::int64_t peak = 0;
            const bool whole = read_rule() && read_figure("Leaked bytes:", leaked) &&
                               read_figure("Peak bytes on heap:", peak) && read_rule();
            if (!whole) throw wrong("the summary is cut or does not parse here");
            table.add_row({program, leaked, peak});
        } while (reader_.next(line));
        return table;
    }

    LineReader reader_;
    Names& names_;
    Problems& problems_;
};

// "PC","module","function","fileline" without escapes: the function is whatever lies between the others.
bool parse_filtered(std::string_view line, Names& names, Table& table) {
    constexpr std::string_view parting = "\",\"";
    if (line.size() < 2 || line.front() != '"' || line.back() != '"') return false;
    line = line.substr(1, line.size() - 2);
    const std::size_t first = line.find(parting);
    const std::size_t second =
        first == std::string_view::npos ? first : line.find(parting, first + parting.size());
    const std::size_t last = line.rfind(parting);
    if (second == std::string_view::npos || last <= second) return false;
    std::uint64_t address = 0;
    if (!line.starts_with("0x") || !parse_number(line.substr(2, first - 2), address, 16)) return false;
    const auto between = [&](std::size_t from, std::size_t to) {
        return names.id_of(line.substr(from + parting.size(), to - from - parting.size()));
    };
    table.add_row({static_cast<std::int64_t>(address), between(first, second), between(second, last),
                   names.id_of(line.substr(last + parting.size()))});
    return true;
}

}  // namespace

void read_leaks(const std::string& path, Names& names, Problems& problems, std::vector<Table>& tables) {
    LeakReader(path, names, problems).read(tables);
}

Table read_filtered(const std::string& path, Names& names, Problems& problems) {
    LineReader reader(path);
    Table table = empty_table("filtered", path, filtered_columns);
    std::string_view line;
    if (!reader.next(line)) throw ReportError({path, 0, "the file is empty"});
    if (line != R"("PC","module","function","fileline")") {
        throw ReportError({path, 1, "not this kind of report: it begins with " + in_quotes(line)});
    }
    while (reader.next(line)) {
        const bool good = reader.terminated() && parse_filtered(line, names, table);
        if (good) continue;
        problems.add({path, reader.number(),
                      reader.terminated() ? "no row of four quoted fields: " + in_quotes(line)
                                          : "the file is cut inside this row"});
    }
    return table;
}

}  // namespace memview
