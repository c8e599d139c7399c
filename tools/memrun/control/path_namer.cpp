#include "tools/memrun/control/path_namer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

#include "mem/attribution/filter_line.h"
#include "mem/attribution/frame_filters.h"
#include "platform/module_name.h"
#include "platform/symbols/asked_names.h"

namespace memrun::control {

namespace {

std::string in_hex(std::uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "+0x%llx", static_cast<unsigned long long>(value));
    return text;
}

std::string path_of(const MEM_PATH_LOAD& load) {
    return std::string(load.path, strnlen(load.path, sizeof load.path));
}

symbols::NAME_QUESTION question_about(const MEM_PATH_LOAD& load) {
    const std::size_t size = std::min<std::size_t>(load.build_id_size, sizeof load.build_id);
    return {path_of(load), std::string(reinterpret_cast<const char*>(load.build_id), size), false, {}};
}

// The frames by the load that they belong to.
using FramesOfLoads = std::map<std::uint32_t, std::vector<std::size_t>>;

FramesOfLoads sort_by_load(const MEM_PATH_REGION& region, const std::vector<MEM_PATH_FRAME>& frames) {
    FramesOfLoads sorted;
    const std::uint32_t loads = std::min(region.header->loads.get_published(), region.room_for_loads());
    for (std::size_t i = 0; i < frames.size(); ++i)
        if (frames[i].load != 0 && frames[i].load < loads) sorted[frames[i].load].push_back(i);
    return sorted;
}

// What the process itself would write: a function that only a symbol table knows has its distance behind it,
// and what nobody knows is its module's.
void take_levels(std::size_t number, const std::string& module, std::vector<symbols::FRAME> levels,
                 std::uint64_t in_file, const MEM_PATH_LEVEL_TAKER& take) {
    const bool is_filtered = mem_module_is_filtered_by_rule(module) || mem_module_name_is_of_system(module);
    if (levels.empty()) levels.emplace_back();
    for (std::size_t i = 0; i < levels.size(); ++i) {
        symbols::FRAME& frame = levels[i];
        if (frame.function.empty())
            frame.function = module + in_hex(in_file);
        else if (frame.offset)
            frame.function += in_hex(*frame.offset);
        if (frame.file.empty()) frame.file = "Unknown";
        take(number, i,
             {module, frame.file, frame.function, frame.line,
              is_filtered || mem_frame_is_filtered(frame.file, frame.function)});
    }
}

}  // namespace

void read_filters(const std::string& file) {
    if (std::error_code error; !std::filesystem::is_regular_file(file, error)) return;
    std::ifstream in(file);
    for (std::string text; std::getline(in, text);) {
        const MEM_FILTER_LINE line = mem_parse_filter_line(text);
        if (line.command == MEM_FILTER_COMMAND::module) mem_filter_modules.push_back(line.argument);
        if (line.command == MEM_FILTER_COMMAND::function) mem_filter_functions.push_back(line.argument);
        if (line.command == MEM_FILTER_COMMAND::file_basename)
            mem_filter_file_basenames.push_back(line.argument);
    }
}

void name_frames(const MEM_PATH_REGION& region, const std::vector<MEM_PATH_FRAME>& frames,
                 const MEM_PATH_LEVEL_TAKER& take) {
    const FramesOfLoads sorted = sort_by_load(region, frames);
    std::vector<symbols::NAME_QUESTION> questions;
    for (const auto& [load, numbers] : sorted) {
        symbols::NAME_QUESTION& question = questions.emplace_back(question_about(region.load(load)));
        for (const std::size_t i : numbers)
            question.addresses.push_back({frames[i].pc - region.load(load).bias, true});
    }
    std::vector<std::vector<symbols::FRAME>> answers;
    const bool is_answered = symbols::can_ask() && symbols::ask(questions, answers);
    if (!is_answered) answers.clear();
    // Of each frame, where its answer is.
    std::vector<std::size_t> answer_of(frames.size());
    std::map<std::uint32_t, std::string> modules;
    std::size_t at = 0;
    for (const auto& [load, numbers] : sorted) {
        modules[load] = module_base_name(path_of(region.load(load)).c_str());
        for (const std::size_t i : numbers) answer_of[i] = at++;
    }
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const auto module = modules.find(frames[i].load);
        if (module == modules.end()) {
            take(i, 0, {});
            continue;
        }
        take_levels(i, module->second,
                    is_answered ? std::move(answers[answer_of[i]]) : std::vector<symbols::FRAME>(),
                    frames[i].pc - region.load(frames[i].load).bias, take);
    }
}

}  // namespace memrun::control
