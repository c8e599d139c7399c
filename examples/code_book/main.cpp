// An example host: reads the code lists of the package iso-codes, indexes them, answers questions and writes
// a list, and marks each of these phases for the memory reports.
//
// Tracking is off until the environment asks for it, as in VELDRIN_MEM_PROFILE_ALL=1 code_book; the marks
// cost one test each then. Reports go to the current directory when the program ends.
#include <ktl_mem/initializer.h>
#include <ktl_mem/queries.h>
#include <ktl_mem/timelines.h>
#include <ktl_mem/tracking.h>

#include <cstdio>
#include <exception>
#include <fstream>

#include "documents.h"
#include "index.h"
#include "phase.h"

namespace {

// The host's part in the library's start and end.
const MEM_INITIALIZER initializer("code_book");

using code_book::Document;
using code_book::Index;
using code_book::Phase;

std::vector<Document> read(const std::string& folder) {
    const Phase phase("code lists", "reading");
    return code_book::read_documents(folder);
}

Index make_index(std::vector<Document> documents) {
    const Phase phase("words", "indexing");
    Index index(documents);
    // Samples that are taken while the documents go bear a label of their own.
    mem_set_timeline_label("dropping documents");
    documents = {};
    mem_user_snapshot_tracking_data();
    return index;
}

std::size_t answer_questions(Index& index) {
    const Phase phase("questions", "querying");
    std::size_t answers = 0;
    for (std::size_t i = 0; i < index.entries().size(); i += 10)
        answers += index.find(index.entries()[i].name).size();
    return answers;
}

void write_list(const Index& index, const std::string& path) {
    const Phase phase("list", "writing");
    std::string text;
    for (const code_book::Entry& entry : index.entries())
        text += entry.list + "\t" + entry.code + "\t" + entry.name + "\n";
    std::ofstream(path) << text;
}

void run(const std::string& folder, const std::string& path) {
    Index index = make_index(read(folder));
    // The peak so far is kept, and the search begins anew: the reports show the higher one of both halves.
    if (mem_tracking_is_enabled(MEM_TRACKING_PER_FILELINE)) mem_tbb_tracking_flush_peak();
    const std::size_t answers = answer_questions(index);
    write_list(index, path);
    std::printf("%zu entries, %zu words, %zu answers\n", index.entries().size(), index.words(), answers);
}

}  // namespace

int main(int argc, char** argv) {
    mem_set_tbb_exe_string("code_book");
    try {
        run(argc > 1 ? argv[1] : "/usr/share/iso-codes/json", argc > 2 ? argv[2] : "/dev/null");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "code_book: %s\n", error.what());
        return 1;
    }
    return 0;
}
