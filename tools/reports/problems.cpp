#include "tools/reports/problems.h"

namespace memview {
namespace {

constexpr std::size_t most_kept = 100;
constexpr std::size_t longest_quote = 60;

}  // namespace

std::string to_text(const Problem& problem) {
    std::string text = problem.file;
    if (problem.line != 0) text += ":" + std::to_string(problem.line);
    return text + ": " + problem.reason;
}

std::string in_quotes(std::string_view text) {
    std::string out = "\"";
    for (const char c : text.substr(0, longest_quote)) {
        const auto byte = static_cast<unsigned char>(c);
        out += byte < 0x20 || byte >= 0x7f ? '?' : c;
    }
    return out + (text.size() > longest_quote ? "...\"" : "\"");
}

ReportError::ReportError(Problem problem)
    : std::runtime_error(to_text(problem)), problem_(std::move(problem)) {}

void Problems::add(Problem problem) {
    if (!keep_going_) throw ReportError(std::move(problem));
    ++count_;
    if (kept_.size() < most_kept) kept_.push_back(std::move(problem));
}

std::vector<std::string> Problems::lines() const {
    std::vector<std::string> all;
    for (const Problem& problem : kept_) all.push_back(to_text(problem));
    if (count_ > kept_.size()) all.push_back("and " + std::to_string(count_ - kept_.size()) + " more");
    return all;
}

}  // namespace memview
