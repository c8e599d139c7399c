// What the rows of a report add up to.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>

// Of the column with that title. A report has two lines, titles, a row for each thing, and the time.
inline std::int64_t sum_of(const std::string& title, bool (*dump)(std::ostream&)) {
    std::stringstream report;
    dump(report);
    std::string line, field;
    for (int head = 0; head < 3; ++head) std::getline(report, line);
    int column = 0;
    for (std::istringstream titles(line); std::getline(titles, field, '\t') && field != title;) ++column;
    std::int64_t sum = 0;
    while (std::getline(report, line) && !line.starts_with("Time spent")) {
        std::istringstream fields(line);
        for (int i = 0; i <= column; ++i) std::getline(fields, field, '\t');
        sum += std::stoll(field);
    }
    return sum;
}
