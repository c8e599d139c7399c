// The timelines of the tracker as the timeline report takes them: their columns, labels and locks.
#include <iostream>

#include "ktl_mem/reports.h"
#include "mem/base/thread_state.h"
#include "mem/base/tracker_phase.h"
#include "mem/bins/timeline_labels.h"
#include "mem/report/timeline_report.h"
#include "mem/timeline/module_timelines.h"

namespace {

class TAG_OF_THE_TIME : public MEM_ROW_LABELS {
  public:
    explicit TAG_OF_THE_TIME(MEM_TIMELINE_LABELS& labels) : reader(labels) {}
    std::string_view next() override { return reader.next(); }

  private:
    MEM_TIMELINE_LABELS::READER reader;
};

class BIN_OF_THE_TIME : public MEM_ROW_LABELS {
  public:
    BIN_OF_THE_TIME(const MEM_RUN_SERIES<PB_ID>& bin_series, const MEM_PROFILE_BIN_STACK& bin_names)
        : cursor(bin_series), bins(bin_names) {}
    std::string_view next() override {
        bin = cursor.next();
        return bin != nullptr ? std::string_view(bins.name_of(*bin)) : "BinIterError";
    }
    void row_ended() override {
        if (bin == nullptr) std::cerr << "Mem tracking bin label iter past the end!";
    }

  private:
    MEM_RUN_CURSOR<PB_ID> cursor;
    const MEM_PROFILE_BIN_STACK& bins;
    const PB_ID* bin = nullptr;
};

std::vector<MEM_TIMELINE_COLUMN> columns_of(const MEM_MODULE_TIMELINES::SERIES_MAP& modules,
                                            MEM_MODULE_VALUE value) {
    std::vector<MEM_TIMELINE_COLUMN> columns;
    columns.reserve(modules.size());
    for (const auto& [name, module] : modules)
        columns.push_back({name, value == MEM_MODULE_VALUE::CURRENT_BYTES ? &module.bytes : &module.blocks});
    return columns;
}

std::vector<MEM_TIMELINE_COLUMN> columns_of(const std::vector<MEM_TIMELINE>& tag_series,
                                            const MEM_PROFILE_BIN_STACK& tag_names) {
    std::vector<MEM_TIMELINE_COLUMN> columns;
    columns.reserve(tag_series.size());
    for (std::uint32_t id = 0; id < tag_series.size(); ++id)
        columns.push_back({tag_names.name_of(id), &tag_series[id]});
    return columns;
}

}  // namespace

bool mem_write_tag_timeline(std::ostream& plain, std::ostream& detailed, const MEM_TAG_SERIES& series,
                            const MEM_PROFILE_BINS& names) {
    BIN_OF_THE_TIME labels(series.bin_series, names.bins);
    return dump_timeline(plain, detailed, columns_of(series.tag_series, names.tags), series.num_samples,
                         labels);
}

bool mem_dump_module_timelines(std::ostream& plain, std::ostream& detailed, MEM_MODULE_VALUE value) {
    return mem_tbb_module_timelines->read([&](const auto& modules, std::uint64_t num_samples) {
        TAG_OF_THE_TIME labels(*mem_tbb_timeline_labels);
        return dump_timeline(plain, detailed, columns_of(modules, value), num_samples, labels);
    });
}

bool mem_dump_tag_timeline(std::ostream& plain, std::ostream& detailed) {
    const MEM_PROFILE_BINS& names = mem_get_profile_bins();
    return mem_tbb_tag_timeline->read(
        [&](const MEM_TAG_SERIES& series) { return mem_write_tag_timeline(plain, detailed, series, names); });
}

bool mem_dump_tbb_module_tracking(std::ostream& plain, std::ostream& detailed) {
    if (mem_tbb_tracker_has_ended()) return true;
    const MEM_LOCKED_CALL_SCOPE not_an_event;
    return mem_dump_module_timelines(plain, detailed, MEM_MODULE_VALUE::CURRENT_BYTES);
}

bool mem_dump_tbb_profile_bin_tag_timeline_tracking(std::ostream& plain, std::ostream& detailed) {
    if (mem_tbb_tracker_has_ended()) return true;
    const MEM_LOCKED_CALL_SCOPE not_an_event;
    mem_dump_tag_timeline(plain, detailed);
    return true;
}
