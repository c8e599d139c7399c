#include "mem/attribution/code_names.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <mutex>
#include <utility>

#include "mem/attribution/symbolizer.h"
#include "mem/base/scarcity.h"
#include "mem/base/thread_state.h"
#include "platform/symbols/asked_names.h"
#include "platform/thread.h"
#include "platform/thread_aside.h"

constinit MEM_PLAIN_WORD<bool> mem_tbb_best_names;

namespace {

// What the files of a module's debug information may take.
constexpr std::size_t largest_naming = std::size_t{16} << 20;

// What the table that all share knows of code in one module or another.
class KNOWN_CODE {
  public:
    symbols::NAME_TABLE_READER::FOUND find(std::uint64_t pc, const symbols::MODULE& module) {
        const symbols::NAME_TABLE* const table = symbols::known_names();
        if (table == nullptr) return {};
        const symbols::NAME_TABLE_READER reader(*table);
        const std::uint32_t number = number_of(module, reader);
        const auto is_behind_call = [&] { return symbols::locate({&pc, 1}, module).front().is_behind_call; };
        return number != 0 ? reader.find(number, pc - module.bias, is_behind_call)
                           : symbols::NAME_TABLE_READER::FOUND{};
    }

  private:
    std::uint32_t number_of(const symbols::MODULE& module, const symbols::NAME_TABLE_READER& reader) {
        for (const auto& [known, number] : numbers)
            if (known == &module) return number;
        return numbers.emplace_back(&module, reader.find_module(module.path, module.build_id)).second;
    }

    std::vector<std::pair<const symbols::MODULE*, std::uint32_t>> numbers;
};

constexpr int longest_opening_ms = 1000;

void open_files_untracked() {
    const MEM_BLOCK_TRACKING_SCOPE not_the_program;
    symbols::open_files();
}

// Names came from another process until now. Who asks may be anywhere, in the loader as well, so that it is
// another thread that waits for the loader.
void begin_to_name_inside() {
    static constinit std::atomic<int> stage{0};  // 1: begun, 2: over
    int none = 0;
    if (stage.compare_exchange_strong(none, 1)) {
        run_aside(open_files_untracked, longest_opening_ms);
        stage = 2;
    }
    for (int waited_ms = 0; stage.load() == 1 && waited_ms < longest_opening_ms; ++waited_ms) _Thrd_rest();
}

}  // namespace

// The addresses by module, so that each module is named once in what goes to the other process.
class MEM_CODE_NAMES::QUESTIONS {
  public:
    QUESTIONS(const MEM_CODE_NAMES& names, std::vector<std::size_t> missing) : numbers(std::move(missing)) {
        const auto module_of = [&](std::size_t i) { return names.modules[i]; };
        std::ranges::stable_sort(numbers, {}, module_of);
        for (auto at = numbers.begin(); at != numbers.end();) {
            const symbols::MODULE& module = *module_of(*at);
            std::vector<std::uint64_t> asked;
            for (; at != numbers.end() && module_of(*at) == &module; ++at) asked.push_back(names.pcs[*at]);
            all.push_back(
                {module.path, module.build_id, module.is_executable, symbols::locate(asked, module)});
        }
    }

    bool ask(MEM_CODE_NAMES& names) const {
        if (!symbols::ask(all, names.answers)) return false;
        for (std::size_t i = 0; i < numbers.size(); ++i) names.named[numbers[i]].answer = i + 1;
        return true;
    }

  private:
    std::vector<std::size_t> numbers;
    std::vector<symbols::NAME_QUESTION> all;
};

bool mem_has_room_for_naming() {
    return symbols::can_ask() || mem_has_room_for(largest_naming);
}

const symbols::MODULE* mem_find_module(std::uint64_t pc) {
    const std::lock_guard guard(mem_tbb_symbolizer_lock);
    return symbols::find_module(pc, symbols::LISTING::CURRENT);
}

MEM_CODE_NAMES::MEM_CODE_NAMES(std::vector<std::uint64_t> addresses,
                               std::vector<const symbols::MODULE*> of_addresses)
    : pcs(std::move(addresses)), modules(std::move(of_addresses)), named(pcs.size()) {
    const std::vector<std::size_t> missing = look_up();
    if (missing.empty() || (symbols::can_ask() && QUESTIONS(*this, missing).ask(*this))) return;
    name_inside(missing);
}

// The numbers of those that nobody has named yet.
std::vector<std::size_t> MEM_CODE_NAMES::look_up() {
    std::vector<std::size_t> missing;
    KNOWN_CODE known;
    for (std::size_t i = 0; i < pcs.size(); ++i) {
        if (modules[i] == nullptr) continue;
        named[i].known = known.find(pcs[i], *modules[i]);
        if (named[i].known.place == 0) missing.push_back(i);
    }
    return missing;
}

void MEM_CODE_NAMES::name_inside(const std::vector<std::size_t>& numbers) {
    if (!symbols::has_open_files() && symbols::is_left_alone()) begin_to_name_inside();
    const std::lock_guard guard(mem_tbb_symbolizer_lock);
    for (const std::size_t i : numbers) {
        answers.push_back(symbols::find_frames(pcs[i], *modules[i]));
        named[i].answer = answers.size();
    }
}

std::size_t MEM_CODE_NAMES::known_levels(const NAMED& code) const {
    if (code.known.place != 0) return code.known.record.levels;
    return code.answer != 0 ? answers[code.answer - 1].size() : 0;
}

std::size_t MEM_CODE_NAMES::level_count(std::size_t number) const {
    const std::size_t known = known_levels(named[number]);
    return known == 0 && mem_tbb_best_names && modules[number] != nullptr ? 1 : known;
}

symbols::LEVEL MEM_CODE_NAMES::level(std::size_t number, std::size_t level) {
    const NAMED& code = named[number];
    symbols::LEVEL found;
    if (level < known_levels(code)) {
        if (code.known.place != 0) {
            found = symbols::NAME_TABLE_READER(*symbols::known_names()).level(code.known, level);
        } else {
            const symbols::FRAME& frame = answers[code.answer - 1][level];
            found = {frame.file, frame.function, frame.line, frame.offset};
        }
    }
    if (!mem_tbb_best_names) return found;
    const symbols::MODULE& module = *modules[number];
    if (found.function.empty())
        found.function = with_distance(module.name, pcs[number] - module.bias);
    else if (found.offset)
        found.function = with_distance(found.function, *found.offset);
    return found;
}

std::string_view MEM_CODE_NAMES::with_distance(std::string_view name, std::uint64_t distance) {
    char digits[16];
    const char* const end = std::to_chars(digits, digits + sizeof digits, distance, 16).ptr;
    completed.assign(name).append("+0x").append(static_cast<const char*>(digits), end);
    return completed;
}
