// Writes a folder of reports as a run of a chosen size would leave it, with figures that agree with each
// other. usage: make_reports FOLDER NAME MODULES SITES SAMPLES

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "tests/memview/reports.h"

namespace {

using namespace memview_test;

constexpr int TAGS = 6;

// As in a row of call sites: bytes (current, max, peak, cumulative, requested, mismatched), then blocks
// (current, max, peak, cumulative).
using Counters = std::array<std::int64_t, 10>;
constexpr int CURRENT = 0, MAX = 1, PEAK = 2, CUMULATIVE = 3, MOST_BLOCKS = 7;

void add(Counters& sums, const Counters& other) {
    for (std::size_t i = 0; i < sums.size(); ++i) sums[i] += other[i];
}

void put(std::ostream& out, const Counters& counters) {
    for (const std::int64_t value : counters) out << '\t' << value;
}

struct Plan {
    std::filesystem::path folder;
    std::string name;
    std::uint64_t modules, sites, samples;

    std::ofstream open(const std::string& kind) const {
        return std::ofstream(folder / ("mem_tbb_" + kind + "." + name + ".log"));
    }
};

Counters site_counters(std::uint64_t i) {
    const auto blocks = static_cast<std::int64_t>(1 + (i * 7919) % 97);
    const auto size = static_cast<std::int64_t>(16 + (i * 104729) % 4096);
    const std::int64_t current = i % 5 == 0 ? 1 : 0, most = blocks + 2, ever = most * 3;
    const std::int64_t mismatched = i % 11 == 0 ? size : 0;
    return {current * size, most * size, blocks * size, ever * size, ever * (size - 3),
            mismatched,     current,     most,          blocks,      ever};
}

std::string module_name(std::uint64_t m) {
    return m == 0 ? "<script>alert(1)</script>" : "module" + std::to_string(m);
}

struct Series {
    std::string name;
    Counters counters;
};

std::string place(std::uint64_t i, char before_line, char before_function) {
    const std::string part = std::to_string(i % 50);
    return "/home/user/project/source/part" + part + "/file" + std::to_string(i % 700) + ".cpp" +
           before_line + std::to_string(10 + i % 2000) + before_function + "project::part" + part +
           "::Class<int, \"&<b>\">::function" + std::to_string(i % 3000) + "(std::string const&, int)\n";
}

void write_sites(const Plan& plan, std::vector<Counters>& modules, std::vector<Series>& tags) {
    std::ofstream out = plan.open("fileline");
    std::ofstream leaks = plan.open("leak_warning");
    out << sites_head(plan.samples / 2);
    leaks << "MEM: TBB Leak Checking Summary.\n\n";
    std::int64_t leaked = 0;
    for (std::uint64_t i = 0; i < plan.sites; ++i) {
        const Counters c = site_counters(i);
        const std::string module = module_name(i % plan.modules);
        add(modules[i % plan.modules], c);
        add(tags[i % TAGS].counters, c);
        out << "0x" << std::hex << 0x7f0000000000 + i * 64 << std::dec;
        put(out, c);
        out << '\t' << module << '\t' << place(i, '\t', '\t');
        if (c[CURRENT] == 0) continue;
        leaks << module << " leaked " << c[CURRENT] << " bytes in 1 object(s) allocated at "
              << place(i, ':', ' ');
        leaked += c[CURRENT];
    }
    out << OTHER_SITE << CLOSING;
    leaks << "\nTotal leaked bytes: " << leaked << "\n";
}

void write_modules(const Plan& plan, const std::vector<Counters>& modules) {
    std::ofstream out = plan.open("subsystem");
    out << MODULES_HEAD;
    for (std::uint64_t m = 0; m < plan.modules; ++m) {
        out << module_name(m);
        for (int i = 0; i < 10; ++i)
            if (i != MAX && i != MOST_BLOCKS) out << '\t' << modules[m][i];
        out << '\n';
    }
    out << CLOSING;
}

// A course that rises to the peak in the middle of the run and ends at `last`.
std::int64_t value_at(const Plan& plan, const Counters& c, std::uint64_t which, std::uint64_t sample) {
    if (sample + 1 == plan.samples) return c[CURRENT];
    if (sample == plan.samples / 2) return c[PEAK];
    const std::uint64_t distance = sample < plan.samples / 2 ? sample : plan.samples - sample;
    const auto wobble = static_cast<std::int64_t>((sample * 31 + which * 17) % 64);
    return c[PEAK] * static_cast<std::int64_t>(distance) / static_cast<std::int64_t>(plan.samples) *
           (64 + wobble) / 128;
}

const char* label_at(const Plan& plan, std::uint64_t sample) {
    static const char* const LABELS[] = {"Other", "read", "analyse <b>", "write"};
    return LABELS[sample * 4 / plan.samples];
}

void write_timeline(const Plan& plan, const char* kind, const std::string& head,
                    const std::vector<Series>& all) {
    std::ofstream out = plan.open(kind);
    out << head;
    for (const Series& one : all) out << '\t' << one.name;
    out << '\n';
    for (std::uint64_t s = 0; s < plan.samples; ++s) {
        out << label_at(plan, s);
        for (std::uint64_t i = 0; i < all.size(); ++i) out << '\t' << value_at(plan, all[i].counters, i, s);
        out << '\n';
    }
    out << CLOSING;
}

// The last 18 modules are named, the others are Misc.
std::vector<Series> named_modules(const std::vector<Counters>& modules) {
    std::vector<Series> series{{"Misc", {}}};
    for (std::uint64_t m = 0; m < modules.size(); ++m) {
        if (m + 18 < modules.size())
            add(series[0].counters, modules[m]);
        else
            series.push_back({module_name(m), modules[m]});
    }
    return series;
}

void write_stats(const Plan& plan, const std::string& kind, const std::string& head,
                 const std::vector<Series>& rows) {
    std::ofstream out = plan.open(kind);
    out << head;
    for (const auto& [name, c] : rows)
        out << name << '\t' << c[MAX] << '\t' << c[PEAK] << '\t' << c[CUMULATIVE] << '\t' << c[CURRENT]
            << '\n';
}

void write_auxiliary(const Plan& plan) {
    std::ofstream out = plan.open("auxiliary_timeline");
    out << AUXILIARY_HEAD;
    for (std::uint64_t s = 0; s < plan.samples; ++s) {
        out << 1000 + s * 3 << '\t' << 90000000 + s * 40 << '\t' << 30000000 + (s % 1000) * 4096 << '\t'
            << s * 5 << '\t' << s * 4 << '\t' << s << '\t' << s * 500 << '\t' << s * 100 << '\t' << s * 512
            << '\t' << s * 102 << '\n';
    }
    out << CLOSING;
}

void write_filters(const Plan& plan) {
    std::ofstream out = plan.open("filters");
    out << "\"PC\",\"module\",\"function\",\"fileline\"\n"
           "\"0x7f00deadbeef\",\"stdc++\",\"operator\"\" "
           "_x(\"a\",\"b\")\",\"/usr/include/c++/12/bits/new.h:81\"\n"
           "\"0x7f00deadbeff\",\"tbb\",\"\",\"\"\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 6) {
        std::cerr << "usage: make_reports FOLDER NAME MODULES SITES SAMPLES\n";
        return 2;
    }
    const Plan plan{argv[1], argv[2], std::stoull(argv[3]), std::stoull(argv[4]), std::stoull(argv[5])};
    std::filesystem::create_directories(plan.folder);
    std::vector<Counters> modules(plan.modules);
    std::vector<Series> tags(TAGS);
    for (int i = 0; i < TAGS; ++i) tags[i].name = "tag" + std::to_string(i);
    write_sites(plan, modules, tags);
    write_modules(plan, modules);
    for (const char* kind : {"timeline", "cumulative_blocks_timeline"})
        write_timeline(plan, kind, TIMELINE_HEAD, named_modules(modules));
    write_timeline(plan, "pbin_tag_timeline_detailed", DETAILED_HEAD, tags);
    write_stats(plan, "pbin_tag_stats", STATS_HEAD, tags);
    write_stats(plan, "pbin_stats", "Memory Tracking - Profile Bin Stats" + STATS_HEAD.substr(35), tags);
    write_auxiliary(plan);
    write_filters(plan);
    return 0;
}
