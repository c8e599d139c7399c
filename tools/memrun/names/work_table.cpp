#include "tools/memrun/names/work_table.h"

#include <functional>

namespace memrun::names {

namespace {

// Never 0, which stands for no module.
std::uint64_t number_of(const std::string& module) {
    return std::hash<std::string>()(module) | 1;
}

}  // namespace

void WorkTable::begin(const std::string& module) {
    in_work_.store(number_of(module));
}

void WorkTable::note_death() {
    const std::uint64_t module = in_work_.exchange(0);
    if (module == 0) return;
    for (Entry& entry : entries_) {
        if (entry.module.load() != 0 && entry.module.load() != module) continue;
        entry.module.store(module);
        ++entry.deaths;
        return;
    }
}

Trust WorkTable::trust_in(const std::string& module) const {
    const std::uint64_t number = number_of(module);
    for (const Entry& entry : entries_) {
        if (entry.module.load() != number) continue;
        const std::uint32_t deaths = entry.deaths.load();
        return deaths < 2 ? Trust::everything : deaths < 4 ? Trust::symbols_only : Trust::nothing;
    }
    return Trust::everything;
}

}  // namespace memrun::names
