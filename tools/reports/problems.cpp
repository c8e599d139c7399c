#include "tools/reports/problems.h"

namespace memview {
namespace {

constexpr std::size_t MOST_KEPT = 100;
constexpr std::size_t LONGEST_QUOTE = 60;

}  // namespace

std::string to_text(const Problem& problem) {
    std::string text = problem.file;
    if (problem.line != 0) text += ":" + std::to_string(problem.line);
    return text + ": " + problem.reason;
}

std::string in_quotes(std::string_view text) {
    std::string out = "\"";
    for (const char c : text.substr(0, LONGEST_QUOTE)) {
        const auto byte = static_cast<unsigned char>(c);
        out += byte < 0x20 || byte >= 0x7f ? '?' : c;
    }
    return out + (text.size() > LONGEST_QUOTE ? "...\"" : "\"");
}

ReportError::ReportError(Problem problem)
    : std::runtime_error(to_text(problem)), m_problem(std::move(problem)) {}

void Problems::add(Problem problem) {
    if (!m_keep_going) throw ReportError(std::move(problem));
    ++m_count;
    if (m_kept.size() < MOST_KEPT) m_kept.push_back(std::move(problem));
}

std::vector<std::string> Problems::lines() const {
    std::vector<std::string> all;
    for (const Problem& problem : m_kept) all.push_back(to_text(problem));
    if (m_count > m_kept.size()) all.push_back("and " + std::to_string(m_count - m_kept.size()) + " more");
    return all;
}

}  // namespace memview
