#include "mem/report/filters_file.h"

#include <iostream>
#include <locale>

#include "mem/attribution/call_sites.h"
#include "mem/report/report_files.h"
#include "platform/output_file.h"

namespace {

void write_row(std::ostream& out, std::uint64_t pc, const MEM_STACK_FRAME& frame) {
    out << '"' << reinterpret_cast<const void*>(pc) << "\",\"" << frame.module << "\",\"" << frame.function
        << "\",\"";
    if (frame.file[0] != '\0') out << frame.file << ':' << frame.line;
    out << "\"\n";
}

}  // namespace

void mem_write_filters_file() {
    OUTPUT_STREAM out(mem_report_file_name("filters").c_str());
    if (!out) {
        std::cerr << "unable to create VMP filters file" << std::endl;
        return;
    }
    out.imbue(std::locale::classic());  // whatever the host has set for all streams
    out << R"("PC","module","function","fileline")" << '\n';
    const MEM_LOCK_SCOPE guard(mem_call_site_lock);
    for (const auto& [pc, site] : mem_tbb_call_sites->records())
        if (site.is_filtered) write_row(out, pc, site.frame);
}
