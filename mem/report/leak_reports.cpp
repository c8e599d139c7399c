#include "mem/report/leak_reports.h"

#include <algorithm>
#include <iomanip>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "ktl_mem/services.h"
#include "mem/attribution/call_sites.h"
#include "mem/base/internal_error.h"
#include "mem/base/stats.h"
#include "mem/base/tracking_word.h"
#include "mem/columns/report_columns.h"
#include "mem/report/report_files.h"
#include "platform/output_file.h"
#include "platform/shared_log.h"

namespace {

constexpr const char* za_log = "veldrin_za_leak_warning.txt";
constexpr const char* rule = "===============================\n";

bool in_za_mode() {
    return mem_env_switch_is_on("MEM_LEAK_TRACKING_IN_ZA_MODE");
}

struct LEAK {
    const MEM_STACK_FRAME* frame;
    std::int64_t bytes;
    std::int32_t blocks;
};

std::vector<LEAK> leaks_by_size() {
    std::vector<LEAK> leaks;
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    for (auto& [pc, site] : mem_tbb_call_sites->records()) {
        const MEMORY_TRACKER_BASE now = site.tally.read();
        if (now.current_bytes > 0) leaks.push_back({&site.frame, now.current_bytes, now.current_blocks});
    }
    std::sort(leaks.begin(), leaks.end(), [](const LEAK& a, const LEAK& b) { return a.bytes > b.bytes; });
    return leaks;
}

void write_leak(std::ostream& out, const LEAK& leak) {
    const MEM_STACK_FRAME& frame = *leak.frame;
    out << frame.module << " leaked " << leak.bytes << " bytes in " << leak.blocks
        << " object(s) allocated at " << frame.file << ':' << frame.line << ' ' << frame.function << '\n';
}

std::string fast_block() {
    const MEM_STATS stats = mem_get_stats();
    std::ostringstream block;
    block.imbue(std::locale::classic());
    block << mem_gen_get_module_filename() << " memory leak summary\n"
          << rule << "Leaked bytes:      " << std::setw(12) << stats.current.bytes
          << "\nPeak bytes on heap:" << std::setw(12) << stats.peak.bytes << '\n'
          << rule << '\n';
    return block.str();
}

}  // namespace

void mem_dump_tbb_leak_tracking() {
    const std::vector<LEAK> leaks = leaks_by_size();
    const std::string usual_name = mem_report_file_name(mem_report::leaks.kind);
    OUTPUT_STREAM out((in_za_mode() ? mem_report_path(za_log) : usual_name).c_str());
    if (!out) return;
    out.imbue(std::locale::classic());  // whatever the host has set for all streams
    out << mem_report::leaks.title << "\n\n";
    std::int64_t total = 0;
    for (const LEAK& leak : leaks) {
        if (leak.frame->pc == 0) continue;  // what could not be attributed is no one's leak
        write_leak(out, leak);
        total += leak.bytes;
    }
    out << "\nTotal leaked bytes: " << total << '\n';
}

void mem_dump_tbb_fast_leak_tracking() {
    append_to_shared_log(mem_report_path(in_za_mode() ? za_log : "mem_tbb_fast_leak_warning.log").c_str(),
                         "For more detail, use INI mem_check_leaks=on\n\n", fast_block());
}
