// The last line of a report: how long it took to write.
#pragma once

#include <cstdint>
#include <string>

// The line, without its end, for two readings of the clock in milliseconds; a start of -1 is a clock that
// failed.
std::string mem_report_trailer(std::int32_t start, std::int32_t end);

// Made when a report begins.
class MEM_REPORT_CLOCK {
  public:
    MEM_REPORT_CLOCK();
    std::string trailer() const;

  private:
    std::int32_t start;
};
