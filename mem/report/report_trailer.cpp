#include "mem/report/report_trailer.h"

#include "mem/report/report_line.h"
#include "platform/clock.h"

std::string mem_report_trailer(std::int32_t start, std::int32_t end) {
    if (start == -1) return "Error timing this dump.";
    // Unsigned, because the clock may wrap between the two readings.
    const auto clicks =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(end) - static_cast<std::uint32_t>(start));
    MEM_REPORT_LINE line;
    line.text("Time spent dumping:\t").number(clicks).text(" clicks.\t");
    line.seconds(static_cast<float>(clicks) / 1000.0F).text(" seconds.");
    return line.take();
}

MEM_REPORT_CLOCK::MEM_REPORT_CLOCK() : start(clock_ms()) {}

std::string MEM_REPORT_CLOCK::trailer() const {
    return mem_report_trailer(start, start == -1 ? -1 : clock_ms());
}
