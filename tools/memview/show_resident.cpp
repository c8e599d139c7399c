#include "tools/memview/show_resident.h"

#include <algorithm>
#include <cmath>

#include "tools/memview/resident_parts.h"
#include "tools/memview/units.h"

namespace memview {
namespace {

constexpr double bar_width = 24;

std::string share_text(std::int64_t bytes, std::int64_t resident) {
    if (resident <= 0) return "";
    return std::to_string(std::llround(100.0 * static_cast<double>(bytes) / static_cast<double>(resident))) +
           " %";
}

// Each bar begins where the one before it ended.
std::string bar(std::int64_t from, std::int64_t to, std::int64_t whole) {
    const auto place = [whole](std::int64_t bytes) {
        const double share = whole > 0 ? static_cast<double>(bytes) / static_cast<double>(whole) : 0;
        return static_cast<std::size_t>(std::clamp(std::round(share * bar_width), 0.0, 2 * bar_width));
    };
    const auto [low, high] = std::minmax({place(from), place(to)});
    return std::string(low, ' ') + std::string(std::max<std::size_t>(high - low, 1), from <= to ? '#' : '-');
}

void show_moment(const ResidentMoment& moment, const Terminal& terminal, std::ostream& out) {
    const std::int64_t resident = moment.point->parts[RESIDENT];
    out << "\n"
        << bold("Resident memory " + std::string(moment.title) + ": " + human_bytes(resident), terminal)
        << "\n";
    TextTable table({{"BYTES", TextTable::Align::right},
                     {"SHARE", TextTable::Align::right},
                     {"PART", TextTable::Align::left, TextTable::Cut::end},
                     {"", TextTable::Align::left, TextTable::Cut::end}});
    const std::vector<ResidentStep> steps = resident_steps(*moment.point);
    std::int64_t widest = 1;
    std::int64_t sum = 0;
    for (const ResidentStep& step : steps) widest = std::max(widest, sum += step.bytes);
    sum = 0;
    for (const ResidentStep& step : steps) {
        table.add({human_bytes(step.bytes), share_text(step.bytes, resident), step.title,
                   bar(sum, sum + step.bytes, widest)});
        sum += step.bytes;
    }
    table.print(out, terminal);
    for (const ResidentStep& step : steps)
        if (!step.advice.empty()) out << "  " << step.title << ": " << step.advice << "\n";
}

void show_limit(const char* name, const std::optional<std::int64_t>& limit, std::ostream& out) {
    if (limit) out << "  limit of the " << name << ": " << human_bytes(*limit) << "\n";
}

}  // namespace

void show_resident(const Resident& resident, const Terminal& terminal, std::ostream& out) {
    for (const ResidentMoment& moment : resident_moments(resident)) show_moment(moment, terminal, out);
    show_limit("cgroup", resident.cgroup_limit, out);
    show_limit("address space", resident.address_space_limit, out);
}

}  // namespace memview
