// Finds code list entries by the words of their names.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "documents.h"

namespace code_book {

struct Entry {
    std::string list;  // such as "iso_3166-1"
    std::string code;
    std::string name;
};

class Index {
  public:
    explicit Index(const std::vector<Document>& documents);

    // The entries whose names hold every word of the question. Answers are kept for the next time.
    const std::vector<Entry>& find(const std::string& question);

    const std::vector<Entry>& entries() const { return entries_; }
    std::size_t words() const { return by_word_.size(); }

  private:
    void add(const std::string& list, const nlohmann::json& item);

    std::vector<Entry> entries_;
    std::unordered_map<std::string, std::vector<std::size_t>> by_word_;
    // Never freed, as caches for the life of a process often are: the leak report shows them.
    std::map<std::string, std::vector<Entry>>& answers_;
};

}  // namespace code_book
