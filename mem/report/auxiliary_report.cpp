#include "mem/report/auxiliary_report.h"

#include "mem/report/report_line.h"
#include "mem/report/report_trailer.h"

void mem_write_auxiliary_report(std::ostream& out, const std::vector<MEM_AUXILIARY_SAMPLE>& samples) {
    const MEM_REPORT_CLOCK clock;
    MEM_REPORT_LINE line;
    line.text(mem_report::process.title).end_row(out);
    line.end_row(out);
    line.titles(mem_report::process.columns).end_row(out);
    for (const MEM_AUXILIARY_SAMPLE& sample : samples) {
        line.number(sample.page_faults).text("\t").number(sample.commit_charge);
        line.text("\t").number(sample.resident);
        line.text("\t").number(sample.profiler_num_allocs).text("\t").number(sample.profiler_num_deallocs);
        line.text("\t").number(sample.profiler_num_allocs - sample.profiler_num_deallocs);
        line.text("\t").number(sample.profiler_requested_total);
        line.text("\t").number(sample.profiler_requested_outstanding);
        line.text("\t").number(sample.profiler_allocated_total);
        line.text("\t").number(sample.profiler_allocated_outstanding);
        line.end_row(out);
    }
    line.text(clock.trailer()).end_row(out);
}

void dump_auxiliary_timeline(std::ostream& out) {
    mem_tbb_auxiliary_timeline->read([&out](const std::vector<MEM_AUXILIARY_SAMPLE>& samples) {
        mem_write_auxiliary_report(out, samples);
    });
}
