#include "mem/report/clock_report.h"

#include <string>

#include "mem/report/report_line.h"
#include "mem/report/report_trailer.h"
#include "platform/clock.h"
#include "platform/process.h"

void mem_write_clock_report(std::ostream& out, const MEM_CLOCK_HEAD& head,
                            const std::vector<MEM_SAMPLE_TIME>& times) {
    const MEM_REPORT_CLOCK clock;
    MEM_REPORT_LINE line;
    line.text(mem_report::clock.title).end_line(out);
    line.end_line(out);
    line.text("Start\t").number(head.start / 1000).text(".");
    line.text(std::to_string(1000 + head.start % 1000).substr(1)).end_line(out);
    line.text("Process\t").number(head.process).end_line(out);
    line.text("Parent\t").number(head.parent).end_line(out);
    line.end_line(out);
    line.titles(mem_report::clock.columns).end_line(out);
    std::uint64_t sample = 0;
    for (const MEM_SAMPLE_TIME& time : times)
        line.number(sample++)
            .text("\t")
            .number(time.milliseconds)
            .text("\t")
            .number(time.event)
            .end_line(out);
    line.text(clock.trailer()).end_row(out);
}

void mem_dump_sample_clock(std::ostream& out) {
    mem_tbb_sample_clock->read([&out](const std::vector<MEM_SAMPLE_TIME>& times) {
        mem_write_clock_report(out, {process_start_ms(), process_id(), parent_process_id()}, times);
    });
}
