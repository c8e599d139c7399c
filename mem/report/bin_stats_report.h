// The tables of bins and of tags: one row for each id, with its counters.
#pragma once

#include <ostream>

#include "mem/bins/profile_bin_stack.h"
#include "mem/bins/profile_bin_table.h"
#include "mem/columns/report_columns.h"

enum class MEM_STATS_UNIT { BYTES, MEBIBYTES };

// Takes no lock and does not enter the table's gate: the rows may change while they are written.
void dump_stats(const MEM_PROFILE_BIN_TABLE& table, std::ostream& out, const MEM_REPORT& report,
                MEM_STATS_UNIT unit, const MEM_PROFILE_BIN_STACK& names);

// The four tables of the tracker, with their titles.
void mem_dump_tag_stats(std::ostream& out, MEM_STATS_UNIT unit);
void mem_dump_bin_stats(std::ostream& out, MEM_STATS_UNIT unit);
