#include "tools/common/readable_names.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>
#include <vector>

namespace readable {
namespace {

constexpr int deepest = 100;                            // templates within templates
constexpr std::size_t longest = std::size_t{64} << 10;  // what is longer nobody reads
constexpr std::string_view operator_word = "operator";
// Longer ones before those that they begin with.
constexpr std::array<std::string_view, 12> operator_signs = {"()", "<=>", "<<=", ">>=", "->*", "<<",
                                                             ">>", "->",  "<=",  ">=",  "<",   ">"};

bool is_word(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '$' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool is_digits(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || c == '_'; });
}

// Whether a part of a qualified name is a namespace that its library declares inline to keep its versions
// apart.
bool is_inline_namespace(std::string_view part) {
    if (part == "__cxx11" || part == "__1" || part == "__2" || part == "__ndk1" || part == "_V2") return true;
    if (part.starts_with("lts_")) return is_digits(part.substr(4));
    if (part.size() > 1 && part.front() == 'v') return is_digits(part.substr(1));
    const std::size_t abi = part.find("_abi");  // json_abi_v3_11_2, json_abi_diag_v3_11_2
    const std::size_t version = abi == std::string_view::npos ? abi : part.find("_v", abi);
    return version != std::string_view::npos && is_digits(part.substr(version + 2));
}

using Alias = std::pair<std::string_view, std::string_view>;

// Types that are known by a shorter name, after all else in them is folded.
constexpr Alias aliases[] = {{"std::basic_string<char>", "std::string"},
                             {"std::basic_string<wchar_t>", "std::wstring"},
                             {"std::basic_string<char16_t>", "std::u16string"},
                             {"std::basic_string<char32_t>", "std::u32string"},
                             {"std::basic_string_view<char>", "std::string_view"},
                             {"std::basic_ios<char>", "std::ios"},
                             {"std::basic_streambuf<char>", "std::streambuf"},
                             {"std::basic_istream<char>", "std::istream"},
                             {"std::basic_ostream<char>", "std::ostream"},
                             {"std::basic_iostream<char>", "std::iostream"},
                             {"std::basic_filebuf<char>", "std::filebuf"},
                             {"std::basic_ifstream<char>", "std::ifstream"},
                             {"std::basic_ofstream<char>", "std::ofstream"},
                             {"std::basic_fstream<char>", "std::fstream"},
                             {"std::basic_stringbuf<char>", "std::stringbuf"},
                             {"std::basic_istringstream<char>", "std::istringstream"},
                             {"std::basic_ostringstream<char>", "std::ostringstream"},
                             {"std::basic_stringstream<char>", "std::stringstream"},
                             {"std::basic_regex<char>", "std::regex"},
                             {"nlohmann::basic_json<std::map, std::vector, std::string, bool, long, unsigned "
                              "long, double, std::allocator, "
                              "nlohmann::adl_serializer, std::vector<unsigned char>>",
                              "nlohmann::json"}};

// Templates whose argument at the end is a default when it is made for the first argument.
constexpr std::array<std::string_view, 6> defaults = {"std::less<",           "std::equal_to<",
                                                      "std::hash<",           "std::char_traits<",
                                                      "std::default_delete<", "std::regex_traits<"};

// A comparison may stand before other defaults, so this is asked from the last argument on.
bool is_default(const std::vector<std::string>& arguments) {
    const std::string& last = arguments.back();
    if (arguments.size() < 2) return false;
    if (last.starts_with("std::allocator<")) return true;
    if (last == "(__gnu_cxx::_Lock_policy)2") return true;
    if (last == "void" && arguments.front() == "std::map") return true;  // base class of a json value
    return std::any_of(defaults.begin(), defaults.end(), [&](std::string_view made) {
        return last.size() == made.size() + arguments.front().size() + 1 && last.starts_with(made) &&
               std::string_view(last).substr(made.size(), arguments.front().size()) == arguments.front();
    });
}

class Folder {
  public:
    explicit Folder(std::string_view text) : text_(text) {}

    // Gives false when the brackets do not match, so that the text is no name of this form.
    bool fold(std::string& out) { return sequence(out, "", 0) && at_ == text_.size(); }

  private:
    bool at_end() const { return at_ >= text_.size(); }
    char here() const { return text_[at_]; }

    // Up to one of the characters in `stops`, which is not taken.
    bool sequence(std::string& out, std::string_view stops, int depth) {
        if (depth > deepest) return false;
        while (!at_end() && stops.find(here()) == std::string_view::npos) {
            if (!piece(out, depth)) return false;
        }
        return stops.empty() || !at_end();
    }

    bool piece(std::string& out, int depth) {
        const char c = here();
        if (is_word(c)) {
            word(out);
            return true;
        }
        if (c == '<') return arguments(out, depth);
        if (c == '[' && text_.substr(at_).starts_with("[abi:")) {
            at_ = text_.find(']', at_);
            return at_++ != std::string_view::npos;
        }
        if (c == '(' || c == '[' || c == '{')
            return bracket(out, c == '(' ? ")" : c == '[' ? "]" : "}", depth);
        if (c == ')' || c == ']' || c == '}' || (c == '>' && !out.ends_with('-'))) return false;
        out += c;
        ++at_;
        return true;
    }

    bool bracket(std::string& out, std::string_view close, int depth) {
        out += text_[at_++];
        if (!sequence(out, close, depth + 1)) return false;
        out += text_[at_++];
        return true;
    }

    void word(std::string& out) {
        const std::size_t begin = at_;
        while (!at_end() && is_word(here())) ++at_;
        const std::string_view text = text_.substr(begin, at_ - begin);
        const bool is_qualifier = text_.substr(at_).starts_with("::");
        if (is_qualifier && out.ends_with("::") && is_inline_namespace(text)) {
            at_ += 2;
            return;
        }
        out += text;
        if (text == operator_word) symbols(out);
    }

    // The signs of an operator are no brackets; template arguments behind them begin with a blank.
    void symbols(std::string& out) {
        for (const std::string_view signs : operator_signs) {
            if (!text_.substr(at_).starts_with(signs)) continue;
            out += signs;
            at_ += signs.size();
            return;
        }
    }

    bool arguments(std::string& out, int depth) {
        ++at_;
        std::vector<std::string> all;
        for (;;) {
            std::string one;
            if (!argument(one, depth)) return false;
            all.push_back(std::move(one));
            if (text_[at_++] == '>') break;
        }
        while (is_default(all)) all.pop_back();
        append(out, all);
        return true;
    }

    // One argument without the blanks around it; ends before its comma or bracket.
    bool argument(std::string& one, int depth) {
        while (!at_end() && here() == ' ') ++at_;
        for (;;) {
            if (!sequence(one, ",>", depth + 1)) return false;
            if (here() == ',' || !one.ends_with('-')) break;
            one += text_[at_++];  // an arrow
        }
        one.erase(one.find_last_not_of(' ') + 1);
        return true;
    }

    static void append(std::string& out, const std::vector<std::string>& arguments) {
        std::string text = "<";
        for (const std::string& one : arguments) text += (text.size() > 1 ? ", " : "") + one;
        text += ">";
        for (const auto& [form, alias] : aliases) {
            const std::string_view base = form.substr(0, form.find('<'));
            if (form.substr(base.size()) != text || !out.ends_with(base)) continue;
            const std::size_t before = out.size() - base.size();
            if (before > 0 && (is_word(out[before - 1]) || out[before - 1] == ':')) continue;
            out.replace(before, base.size(), alias);
            return;
        }
        out += text;
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

}  // namespace

std::string name(std::string_view whole) {
    std::string out;
    if (whole.size() > longest || !Folder(whole).fold(out)) return std::string(whole);
    return out;
}

}  // namespace readable
