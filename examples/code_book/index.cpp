#include "index.h"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace code_book {

namespace {

std::vector<std::string> words_of(const std::string& text) {
    std::vector<std::string> words(1);
    for (const char c : text) {
        const auto letter = static_cast<unsigned char>(c);
        if (std::isalnum(letter) != 0 || letter >= 0x80)
            words.back() += static_cast<char>(std::tolower(letter));
        else if (!words.back().empty())
            words.emplace_back();
    }
    if (words.back().empty()) words.pop_back();
    return words;
}

// The first of the usual keys that holds a text.
std::string text_of(const nlohmann::json& item, const std::vector<std::string>& keys) {
    for (const std::string& key : keys)
        if (const auto found = item.find(key); found != item.end() && found->is_string())
            return found->get<std::string>();
    return "";
}

std::vector<std::size_t> in_both(const std::vector<std::size_t>& a, const std::vector<std::size_t>& b) {
    std::vector<std::size_t> both;
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(both));
    return both;
}

}  // namespace

Index::Index(const std::vector<Document>& documents)
    : answers_(*new std::map<std::string, std::vector<Entry>>) {
    for (const Document& document : documents)
        for (const auto& list : document.content)
            if (list.is_array())
                for (const auto& item : list) add(document.name, item);
}

void Index::add(const std::string& list, const nlohmann::json& item) {
    if (!item.is_object()) return;
    entries_.push_back(
        {list, text_of(item, {"alpha_3", "code", "alpha_4", "alpha_2"}), text_of(item, {"name"})});
    for (const std::string& word : words_of(entries_.back().name)) {
        std::vector<std::size_t>& places = by_word_[word];
        if (places.empty() || places.back() != entries_.size() - 1) places.push_back(entries_.size() - 1);
    }
}

const std::vector<Entry>& Index::find(const std::string& question) {
    static const std::vector<std::size_t> nowhere;
    const auto [answer, is_new] = answers_.try_emplace(question);
    if (!is_new) return answer->second;
    std::vector<std::size_t> places;
    bool first = true;
    for (const std::string& word : words_of(question)) {
        const auto found = by_word_.find(word);
        const std::vector<std::size_t>& here =
            found == by_word_.end() ? std::vector<std::size_t>() : found->second;
        places = first ? here : in_both(places, here);
        first = false;
    }
    for (const std::size_t place : places) answer->second.push_back(entries_[place]);
    return answer->second;
}

}  // namespace code_book
