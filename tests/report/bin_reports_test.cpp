#include <gmock/gmock.h>

#include <sstream>

#include "ktl_mem/reports.h"
#include "mem/base/thread_state.h"
#include "mem/report/auxiliary_report.h"
#include "mem/report/bin_stats_report.h"
#include "mem/report/report_trailer.h"
#include "mem/report/timeline_report.h"
#include "mem/timeline/module_timelines.h"
#include "tests/bins/bin_objects.h"

namespace {

std::string without_times(std::string report) {
    const std::size_t time = report.find("Time spent dumping:\t");
    return time == std::string::npos ? report
                                     : report.replace(time, report.find('\n', time) - time, "<time>");
}

struct LETTERS : MEM_ROW_LABELS {
    explicit LETTERS(const char* all) : left(all) {}
    std::string_view next() override {
        const char* const letter = left++;
        return {letter, *letter == '-' ? 0u : 1u};
    }
    const char* left;
};

using NAMED_SERIES = std::pair<std::string, std::vector<std::int64_t>>;

struct FORMS {
    bool result;
    std::string plain, detailed;
};

FORMS forms_of(auto dump_to) {
    std::ostringstream plain, detailed;
    plain << std::hex << std::showpos;  // a host's settings
    plain.width(30);
    const bool result = dump_to(plain, detailed);
    return {result, without_times(plain.str()), without_times(detailed.str())};
}

FORMS dump(const std::vector<NAMED_SERIES>& named, std::uint64_t num_samples, const char* letters) {
    std::vector<MEM_TIMELINE> series(named.size());
    std::vector<MEM_TIMELINE_COLUMN> columns;
    for (std::size_t i = 0; i < named.size(); ++i) {
        for (const std::int64_t value : named[i].second) series[i].append(value);
        columns.push_back({named[i].first, &series[i]});
    }
    LETTERS labels(letters);
    return forms_of([&](std::ostream& plain, std::ostream& detailed) {
        return dump_timeline(plain, detailed, columns, num_samples, labels);
    });
}

const std::string plain_title = "MEM: TBB Module Tracking Memory Timeline.\n\n";
const std::string detailed_title = "MEM: TBB Module Tracking Detailed Memory Timeline.\n\n";

TEST(TimelineReport, WritesARowForEachSample) {
    struct CASE {
        std::vector<NAMED_SERIES> series;
        std::uint64_t num_samples;
        const char *labels, *plain, *detailed;
    };
    const CASE cases[] = {
        {{}, 0, "", "\tMisc\n", "\n"},
        {{}, 1, "a", "\tMisc\na\t0\n", "\na\n"},
        {{{"peak", {0, 90, 0}}, {"flat", {20, 20, 20}}, {"low", {-5, -6, -4}}},
         3,
         "a-b",
         "\tMisc\tlow\tflat\tpeak\na\t0\t-5\t20\t0\nOther\t0\t-6\t20\t90\nb\t0\t-4\t20\t0\n",
         "\tpeak\tflat\tlow\na\t0\t20\t-5\nOther\t90\t20\t-6\nb\t0\t20\t-4\n"},
        {{{"short", {7}}, {"long", {1, 2, 3}}},
         2,
         "ab",
         "\tMisc\tlong\tshort\na\t0\t1\t7\nb\t0\t2\t0\n",
         "\tshort\tlong\na\t7\t1\nb\t0\t2\n"},
    };
    for (const CASE& c : cases) {
        const FORMS forms = dump(c.series, c.num_samples, c.labels);
        EXPECT_TRUE(forms.result);
        EXPECT_EQ(forms.plain, plain_title + c.plain + "<time>\n");
        EXPECT_EQ(forms.detailed, detailed_title + c.detailed + "<time>\n");
    }
}

TEST(TimelineReport, NamesEighteenColumnsAndSumsTheOthers) {
    std::vector<NAMED_SERIES> series;
    std::string names, first;
    for (std::int64_t i = 1; i <= 18; ++i) {
        series.push_back({"m" + std::to_string(i), {i, 0}});
        names += "\tm" + std::to_string(i);
        first += "\t" + std::to_string(i);
    }
    const std::string zeros = "\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\t0\n<time>\n";
    const std::string head = plain_title + "\tMisc" + names + "\n";
    EXPECT_EQ(dump(series, 2, "ab").plain, head + "a\t0" + first + "\nb\t0" + zeros);
    series.push_back({"negative", {-5, -7}});
    EXPECT_EQ(dump(series, 2, "ab").plain, head + "a\t-5" + first + "\nb\t-7" + zeros);
    series.push_back({"highest", {50, 0}});
    EXPECT_EQ(dump(series, 1, "a").plain, plain_title + "\tMisc" + names.substr(3) + "\thighest\na\t-4" +
                                              first.substr(2) + "\t50\n<time>\n");
}

TEST(TimelineReport, AFailedStreamGetsNothing) {
    for (const bool plain_fails : {true, false}) {
        std::ostringstream plain, detailed;
        (plain_fails ? plain : detailed).setstate(std::ios::failbit);
        LETTERS labels("");
        EXPECT_FALSE(dump_timeline(plain, detailed, {}, 0, labels));
        EXPECT_EQ(plain.str() + detailed.str(), "");
    }
}

TEST(ReportTrailer, TellsTheTime) {
    const std::tuple<std::int32_t, std::int32_t, const char*> cases[] = {
        {-1, 5, "Error timing this dump."},
        {3, 3, "Time spent dumping:\t0 clicks.\t0 seconds."},
        {0, 1234567890, "Time spent dumping:\t1234567890 clicks.\t1.23457e+06 seconds."},
        {0x7FFFFFFF, -0x7FFFFFFF - 1 + 12, "Time spent dumping:\t13 clicks.\t0.013 seconds."}};
    for (const auto& [start, end, trailer] : cases) EXPECT_EQ(mem_report_trailer(start, end), trailer);
}

TEST(AuxiliaryReport, TellsTheProcessAndTheProfilersCounters) {
    MEM_PROFILER_COUNTERS profiler;
    profiler.count_alloc(100, 112);
    profiler.count_alloc(10, 16);
    profiler.count_alloc(10, 16);
    profiler.count_dealloc(16);
    const PROCESS_MEMORY_COUNTERS process{
        .PageFaultCount = 0xFFFFFFFF, .WorkingSetSize = 5, .PagefileUsage = 7};
    std::ostringstream out;
    mem_write_auxiliary_report(
        out, {mem_make_auxiliary_sample(&process, profiler), mem_make_auxiliary_sample(nullptr, profiler)});
    const std::string unknown = "18446744073709551615\t", counters = "3\t1\t2\t120\t104\t144\t128\n";
    EXPECT_THAT(without_times(out.str()),
                testing::EndsWith("outstanding\n4294967295\t7\t5\t" + counters + unknown + unknown + unknown +
                                  counters + "<time>\n"));
}

class Reports : public BinObjects {
  protected:
    Reports() {
        mem_tbb_tag_timeline = new MEM_TAG_TIMELINE(*mem_tbb_tag_table);
        mem_tbb_module_timelines = new MEM_MODULE_TIMELINES;
    }
    ~Reports() override {
        delete mem_tbb_module_timelines;
        delete mem_tbb_tag_timeline;
    }
};

TEST_F(Reports, StatsKeepTheirFormBelowZero) {
    std::ostringstream out;
    discharge_bin_and_tag(0x3000, 1048576);
    mem_dump_tag_stats(out << std::scientific, MEM_STATS_UNIT::MEBIBYTES);
    EXPECT_THAT(out.str(), testing::EndsWith("Current MiB\nRoot\t0.000\t0.000\t0.000\t-1.000\n"));
}

TEST_F(Reports, ARowWithoutABinSaysSo) {
    MEM_TAG_SERIES series{{MEM_TIMELINE()}, 2, {}};
    series.tag_series[0].append(5, 2);
    series.bin_series.append(0);
    testing::internal::CaptureStderr();
    const FORMS forms = forms_of([&](std::ostream& plain, std::ostream& detailed) {
        return mem_write_tag_timeline(plain, detailed, series, mem_get_profile_bins());
    });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Mem tracking bin label iter past the end!");
    EXPECT_EQ(forms.detailed, detailed_title + "\tRoot\nRoot\t5\nBinIterError\t5\n<time>\n");
}

TEST_F(Reports, ModuleRowsAreLabelledByTheLabelOfTheirSample) {
    const MODULES one_module{{{"tool", 64, 2}}};
    mem_tbb_module_timelines->sample(one_module);
    mem_tbb_timeline_labels->sample();
    mem_set_timeline_label("reading");
    mem_tbb_module_timelines->sample(one_module);  // the sampler has not come to its label yet
    for (const bool blocked_before : {false, true}) {
        mem_thread_state.tracking_blocked = blocked_before;
        const FORMS forms = forms_of(mem_dump_tbb_module_tracking);
        EXPECT_TRUE(forms.result);
        EXPECT_EQ(forms.detailed, detailed_title + "\ttool\nOther\t64\nreading\t64\n<time>\n");
        EXPECT_EQ(mem_thread_state.tracking_blocked, blocked_before);
    }
    mem_thread_state.tracking_blocked = false;
}

}  // namespace
