// The code lists as they lie on disk.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace code_book {

struct Document {
    std::string name;  // of the file, without folder and extension
    nlohmann::json content;
};

// Reads every JSON file of the folder, in the order of their names.
std::vector<Document> read_documents(const std::filesystem::path& folder);

}  // namespace code_book
