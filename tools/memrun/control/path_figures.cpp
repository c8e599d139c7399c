#include "tools/memrun/control/path_figures.h"

#include <algorithm>
#include <fstream>
#include <map>

#include "mem/report/report_trailer.h"
#include "tools/memrun/control/path_namer.h"

namespace memrun::control {

namespace {

// The site's own frame in the path of a node: site numbers know no loads.
MEM_PATH_FRAME frame_of_site(const MEM_PATH_REGION& region, const MEM_PATH_ROW& row) {
    const std::uint64_t pc = region.site(row.site - 1).get();
    std::uint32_t steps = region.header->depth + 1;
    for (std::uint32_t node = row.node; node >= mem_path_first_node && steps != 0; --steps) {
        if (region.node(node).pc == pc) return {pc, static_cast<std::uint16_t>(region.node(node).load)};
        if (region.node(node).parent >= node) break;
        node = region.node(node).parent;
    }
    return {pc, 0};
}

struct SiteSum {
    std::int64_t bytes = 0;
    std::int64_t blocks = 0;
    MEM_PATH_FRAME frame{};
};

std::vector<SiteSum> highest_sites(const MEM_PATH_REGION& region, const MEM_PATH_SNAPSHOT& snapshot,
                                   std::size_t most) {
    std::map<std::uint32_t, SiteSum> by_site;
    const std::uint32_t known = std::min(region.header->sites.get_published(), region.room_for_sites());
    for (const MEM_PATH_ROW& row : snapshot.rows) {
        if (row.site == 0 || row.site > known) continue;
        SiteSum& sum = by_site[row.site];
        if (sum.frame.pc == 0) sum.frame = frame_of_site(region, row);
        // Unsigned: the figures are what another program left in its memory.
        sum.bytes = static_cast<std::int64_t>(static_cast<std::uint64_t>(sum.bytes) + row.bytes);
        sum.blocks = static_cast<std::int64_t>(static_cast<std::uint64_t>(sum.blocks) + row.blocks);
    }
    std::vector<SiteSum> sums;
    sums.reserve(by_site.size());
    for (const auto& [site, sum] : by_site) sums.push_back(sum);
    most = std::min(most, sums.size());
    std::partial_sort(sums.begin(), sums.begin() + static_cast<std::ptrdiff_t>(most), sums.end(),
                      [](const SiteSum& a, const SiteSum& b) { return a.bytes > b.bytes; });
    sums.resize(most);
    return sums;
}

void name_site(HeldSite& site, const MEM_PATH_LEVEL& level) {
    site.place = level.line == 0 ? "module " + std::string(level.module)
                                 : std::string(level.file) + ":" + std::to_string(level.line);
    site.function = level.function;
}

// By the first level that is not filtered, else by the innermost one.
std::vector<HeldSite> name_sites(const MEM_PATH_REGION& region, const std::vector<SiteSum>& sums) {
    std::vector<MEM_PATH_FRAME> frames;
    std::vector<HeldSite> sites;
    for (const SiteSum& sum : sums) {
        frames.push_back(sum.frame);
        sites.push_back({sum.bytes, sum.blocks, {}, {}});
    }
    std::vector<bool> are_named(sums.size());
    name_frames(region, frames, [&](std::size_t i, std::size_t number, const MEM_PATH_LEVEL& level) {
        if (number == 0 || (!level.is_filtered && !are_named[i])) name_site(sites[i], level);
        are_named[i] = are_named[i] || !level.is_filtered;
    });
    for (std::size_t i = 0; i < sums.size(); ++i)
        if (frames[i].pc == 0) sites[i] = {sums[i].bytes, sums[i].blocks, {}, "OTHER"};
    return sites;
}

}  // namespace

bool read_held(const Process& process, std::size_t most_sites, Held& held) {
    MEM_PATH_VIEW view;
    if (process.call_paths < 0 || !view.map(process.call_paths)) return false;
    const MEM_PATH_SNAPSHOT snapshot = mem_copy_call_paths(view.region());
    held = {snapshot.sums.bytes,
            snapshot.sums.blocks,
            snapshot.sums.peak_bytes,
            snapshot.sums.cumulative_bytes,
            snapshot.sums.cumulative_blocks,
            {}};
    held.sites = name_sites(view.region(), highest_sites(view.region(), snapshot, most_sites));
    return true;
}

bool write_call_paths(const Process& process, const std::string& folder) {
    MEM_PATH_VIEW view;
    if (process.call_paths < 0 || !view.map(process.call_paths)) return false;
    const MEM_REPORT_CLOCK clock;
    std::ofstream out(folder + "/mem_tbb_call_paths." + process.word + ".log");
    mem_write_call_paths(
        out, view.region(), mem_copy_call_paths(view.region()),
        [&](const auto& frames, const auto& take) { name_frames(view.region(), frames, take); });
    out << clock.trailer() << '\n';
    out.close();
    return static_cast<bool>(out);
}

}  // namespace memrun::control
