#include "tools/memrun/notes.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/memrun/contract.h"

namespace fs = std::filesystem;

namespace memrun {

namespace {

void read_line(const std::string& line, ProcessNote& note) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    const std::string key = line.substr(0, blank);
    const std::string value = blank < line.size() ? line.substr(blank + 1) : "";
    std::istringstream numbers(value);
    if (key == "program") note.program = value;
    if (key == "process") numbers >> note.pid;
    if (key == "allocator") note.foreign_allocator = value;
    if (key == "alone") note.was_alone = true;
    if (key == "silence") note.met_silence = true;
    if (key == "unbound") note.unbound_object = value;
    if (int child = 0; key == "child" && numbers >> child) note.children.push_back(child);
    if (key == "failed") note.has_refusal = static_cast<bool>(numbers >> note.refused_bytes);
    if (key == "anew") note.began_anew = true;
    if (key == "ended") note.ended = value;
    if (key == "left" || key == "stayed") note.has_left = key == "left";
    if (key == "forked") note.is_forked = static_cast<bool>(numbers >> note.inherited_bytes);
    if (key == "stats") {
        numbers >> note.current_bytes >> note.current_blocks >> note.peak_bytes;
        note.has_stats = note.peak_bytes > 0;
    }
}

ProcessNote read_note(const fs::path& path) {
    ProcessNote note;
    note.word = path.filename().string();
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) read_line(line, note);
    return note;
}

}  // namespace

std::vector<ProcessNote> take_notes(const std::string& output, const std::string& launched_word) {
    std::vector<ProcessNote> notes;
    std::error_code error;
    const fs::path folder = fs::path(output) / notes_folder;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error))
        if (entry.is_regular_file(error)) notes.push_back(read_note(entry.path()));
    std::sort(notes.begin(), notes.end(), [&](const ProcessNote& a, const ProcessNote& b) {
        return std::pair(a.word != launched_word, a.word) < std::pair(b.word != launched_word, b.word);
    });
    fs::remove_all(folder, error);
    return notes;
}

}  // namespace memrun
