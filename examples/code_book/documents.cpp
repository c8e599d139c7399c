#include "documents.h"

#include <algorithm>
#include <fstream>

#include "phase.h"

namespace code_book {

namespace {

std::vector<std::filesystem::path> json_files(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ".json") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

Document read_document(const std::filesystem::path& path) {
    const Phase step(path.stem().string());
    std::ifstream file(path);
    return {path.stem().string(), nlohmann::json::parse(file)};
}

}  // namespace

std::vector<Document> read_documents(const std::filesystem::path& folder) {
    std::vector<Document> documents;
    for (const std::filesystem::path& path : json_files(folder)) documents.push_back(read_document(path));
    return documents;
}

}  // namespace code_book
