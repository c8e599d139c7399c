#include "tools/memview/suppressions.h"

#include <algorithm>

#include "tools/reports/line_reader.h"

namespace memview {
namespace {

// Both texts as a whole, with "*" for anything. Goes back only to the last star, so it never takes
// exponential time.
bool matches_whole(std::string_view pattern, std::string_view text) {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = std::string_view::npos;
    std::size_t star_text = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            star_text = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++star_text;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

std::string_view trimmed(std::string_view line) {
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = line.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return line.substr(first, line.find_last_not_of(blanks) - first + 1);
}

}  // namespace

bool matches_pattern(const std::string& pattern, std::string_view text) {
    std::string whole = pattern;
    if (whole.starts_with('^')) {
        whole.erase(0, 1);
    } else {
        whole.insert(0, 1, '*');
    }
    if (whole.ends_with('$')) {
        whole.pop_back();
    } else {
        whole += '*';
    }
    return matches_whole(whole, text);
}

Suppressions Suppressions::read(const std::string& path) {
    constexpr std::string_view line_kind = "leak:";
    Suppressions result;
    LineReader reader(path);
    for (std::string_view line; reader.next(line);) {
        const std::string_view text = trimmed(line);
        if (text.empty() || text.front() == '#') continue;
        if (!text.starts_with(line_kind) || text.size() == line_kind.size()) {
            throw ReportError({path, reader.number(), "leak:PATTERN expected, found " + in_quotes(text)});
        }
        result.entries_.push_back({std::string(text.substr(line_kind.size())), false});
    }
    return result;
}

bool Suppressions::covers(std::string_view text) {
    const auto entry = std::ranges::find_if(
        entries_, [text](const Entry& one) { return matches_pattern(one.pattern, text); });
    if (entry == entries_.end()) return false;
    entry->used = true;
    return true;
}

bool Suppressions::covers(const Table& leaks, std::size_t row, const Names& names) {
    return covers(leaks.text("module", row, names)) || covers(leaks.text("function", row, names)) ||
           covers(leaks.text("file", row, names));
}

std::vector<std::string> Suppressions::unused() const {
    std::vector<std::string> patterns;
    for (const Entry& entry : entries_) {
        if (!entry.used) patterns.push_back(entry.pattern);
    }
    return patterns;
}

}  // namespace memview
