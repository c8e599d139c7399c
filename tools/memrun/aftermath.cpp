#include "tools/memrun/aftermath.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "tools/memrun/output_folder.h"

namespace fs = std::filesystem;

namespace memrun {

namespace {

constexpr std::size_t sites_told = 2;

bool is_told_of(const std::vector<ProcessNote>& notes, const std::string& word) {
    const auto note =
        std::find_if(notes.begin(), notes.end(), [&](const ProcessNote& one) { return one.word == word; });
    return note != notes.end() && (!note->ended.empty() || note->has_left);
}

void remove_begun_reports(const std::string& output, const std::string& word) {
    std::error_code error;
    std::vector<fs::path> begun;
    for (const fs::directory_entry& entry : fs::directory_iterator(output, error)) {
        const std::string name = entry.path().filename().string();
        const std::size_t point = name.find('.');
        if (is_report_name(name) && name.starts_with("mem_tbb_") && name.substr(point + 1) == word + ".log")
            begun.push_back(entry.path());
    }
    for (const fs::path& report : begun) fs::remove(report, error);
}

}  // namespace

Aftermath write_last_words(const control::Followed& followed, const std::vector<ProcessNote>& notes,
                           int launched_pid, const std::string& output) {
    Aftermath aftermath;
    control::Processes processes = followed.ended();
    for (const auto& process : followed.running()) processes.push_back(process);
    for (const auto& process : processes) {
        const bool is_launched = process->pid == launched_pid;
        const bool is_alive = !is_launched && kill(process->pid, 0) == 0;
        if (is_alive || is_told_of(notes, process->word)) continue;
        remove_begun_reports(output, process->word);
        if (!control::write_call_paths(*process, output)) continue;
        aftermath.any_report = true;
        if (is_launched) control::read_held(*process, sites_told, aftermath.held);
    }
    return aftermath;
}

}  // namespace memrun
