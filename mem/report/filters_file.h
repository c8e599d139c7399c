// The filters file: the frames that the tracker left out, for whoever wonders why a line is missing.
#pragma once

// Says on standard error when the file cannot be created. The caller holds the gate.
void mem_write_filters_file();
