#include "mem/report/report_files.h"

#include <boost/iostreams/device/null.hpp>
#include <boost/iostreams/stream.hpp>
#include <new>

#include "ktl_mem/reports.h"
#include "mem/attribution/call_sites.h"
#include "mem/attribution/module_trackers.h"
#include "mem/base/internal_error.h"
#include "mem/base/tracking_word.h"
#include "mem/bins/timeline_labels.h"
#include "mem/columns/report_columns.h"
#include "mem/report/auxiliary_report.h"
#include "mem/report/bin_stats_report.h"
#include "mem/report/clock_report.h"
#include "mem/report/filters_file.h"
#include "mem/report/leak_reports.h"
#include "mem/report/resident_report.h"
#include "mem/report/timeline_report.h"
#include "mem/timeline/auxiliary_timeline.h"
#include "mem/timeline/module_timelines.h"
#include "mem/timeline/sample_clock.h"
#include "mem/timeline/tag_timeline.h"
#include "mem/tracker/event_numbers.h"
#include "mem/tracker/exe_string.h"
#include "mem/tracker/resident_sampling.h"
#include "platform/output_file.h"
#include "platform/standard_streams.h"

constinit std::mutex mem_report_mutex;

namespace {

// Never destroyed: reports are written at the end of the process.
std::string& report_folder() {
    static auto& folder = *new std::string;
    return folder;
}

// A file that cannot be opened leaves its stream failed: the report runs against it and no text arrives.
OUTPUT_STREAM open_report(const MEM_REPORT& report) {
    return OUTPUT_STREAM(mem_report_file_name(report.kind).c_str());
}

void write_call_sites() {
    OUTPUT_STREAM fileline = open_report(mem_report::call_sites);
    mem_dump_tbb_fileline_tracking(fileline);
    OUTPUT_STREAM subsystem = open_report(mem_report::modules);
    mem_dump_tbb_subsystem_tracking(subsystem);
}

void write_call_paths() {
    OUTPUT_STREAM out = open_report(mem_report::call_paths);
    if (out) mem_dump_tbb_call_paths_tracking(out);
}

void write_auxiliary() {
    mem_tbb_auxiliary_timeline->capture();
    OUTPUT_STREAM out = open_report(mem_report::process);
    if (out) dump_auxiliary_timeline(out);
}

void write_modules() {
    mem_tbb_module_timelines->sample(*mem_tbb_module_trackers);
    OUTPUT_STREAM plain = open_report(mem_report::module_timeline);
    OUTPUT_STREAM detailed = open_report(mem_report::module_timeline_detailed);
    mem_dump_module_timelines(plain, detailed, MEM_MODULE_VALUE::CURRENT_BYTES);
    OUTPUT_STREAM blocks_plain = open_report(mem_report::blocks_timeline);
    OUTPUT_STREAM blocks_detailed = open_report(mem_report::blocks_timeline_detailed);
    mem_dump_module_timelines(blocks_plain, blocks_detailed, MEM_MODULE_VALUE::CUMULATIVE_BLOCKS);
}

void write_bins_and_tags() {
    mem_tbb_tag_timeline->sample();
    boost::iostreams::stream<boost::iostreams::null_sink> discarded{boost::iostreams::null_sink()};
    OUTPUT_STREAM detailed = open_report(mem_report::tag_timeline);
    OUTPUT_STREAM tags = open_report(mem_report::tags);
    OUTPUT_STREAM tags_mb = open_report(mem_report::tags_in_mebibytes);
    OUTPUT_STREAM bins = open_report(mem_report::bins);
    OUTPUT_STREAM bins_mb = open_report(mem_report::bins_in_mebibytes);
    mem_dump_tag_timeline(discarded, detailed);
    mem_dump_tag_stats(tags, MEM_STATS_UNIT::BYTES);
    mem_dump_tag_stats(tags_mb, MEM_STATS_UNIT::MEBIBYTES);
    mem_dump_bin_stats(bins, MEM_STATS_UNIT::BYTES);
    mem_dump_bin_stats(bins_mb, MEM_STATS_UNIT::MEBIBYTES);
}

// With the sample that the shut-down takes.
void write_clock() {
    mem_tbb_sample_clock->note(mem_events_numbered());
    OUTPUT_STREAM out = open_report(mem_report::clock);
    if (out) mem_dump_sample_clock(out);
}

void write_resident() {
    mem_note_resident_now();
    OUTPUT_STREAM out = open_report(mem_report::resident);
    if (out) mem_dump_resident_timeline(out);
}

void write_leaks() {
    const std::uint32_t word = mem_tracking_word;
    if ((word & MEM_TRACKING_LEAKS) != 0) {
        mem_dump_tbb_leak_tracking();
    } else if ((word & MEM_TRACKING_LEAKS_FAST) != 0) {
        mem_dump_tbb_fast_leak_tracking();
    }
}

// One that finds no memory ends early, and the next one follows.
void write(void (*report)()) {
    try {
        report();
    } catch (const std::bad_alloc&) {
        write_without_hanging(stderr, "MEM: memory ran out while a report was written\n");
    }
}

void write_if(std::uint32_t any_of_bits, void (*report)()) {
    if (mem_report_is_due(any_of_bits)) write(report);
}

}  // namespace

std::string mem_report_path(const std::string& file_name) {
    return report_folder().empty() ? file_name : report_folder() + "/" + file_name;
}

void mem_set_report_folder(const std::string& folder) {
    report_folder() = folder;
}

std::string mem_report_file_name(const char* kind) {
    mem_require(mem_tbb_exe_string != nullptr, mem_conditions::name_exists);
    return mem_report_path(std::string("mem_tbb_") + kind + "." + *mem_tbb_exe_string + ".log");
}

void mem_write_report_files() {
    const std::uint32_t labelled = MEM_TRACKING_PER_LIBRARY | MEM_TRACKING_PROFILE_BIN_TAGS;
    write_if(MEM_TRACKING_PER_FILELINE, write_call_sites);
    write_if(MEM_TRACKING_CALL_PATHS, write_call_paths);
    write_if(labelled, [] { mem_tbb_timeline_labels->sample(); });
    write_if(MEM_TRACKING_AUXILIARY_TIMELINE, write_auxiliary);
    write_if(MEM_TRACKING_PER_LIBRARY, write_modules);
    write_if(MEM_TRACKING_PROFILE_BIN_TAGS, write_bins_and_tags);
    write_if(labelled | MEM_TRACKING_AUXILIARY_TIMELINE, write_clock);
    write_if(MEM_TRACKING_RESIDENT, write_resident);
    write(write_leaks);
    if (mem_tbb_any_frame_filtered) write(mem_write_filters_file);
}
