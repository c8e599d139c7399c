#include <regex>

#include "tests/process/child_process.h"

namespace {

const std::string phased = track_all + "VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD=1000000";

std::string masked(const std::string& text) {
    const std::string timeless = std::regex_replace(text, std::regex("Time spent dumping:.*\\."), "<time>");
    return std::regex_replace(timeless, std::regex("/[^\t\n]*/"), "");
}

// The library's own load makes one event, the first sample; the run begins with a reset.
TEST(Phases, ReportsTellTheModulesOfTheRun) {
    const ENDING ending = expect({"tracked_host modules " + module_path, phased});
    EXPECT_EQ(masked(ending.files.at("mem_tbb_timeline.vii.log")),
              "MEM: TBB Module Tracking Memory Timeline.\n\n\tMisc\tOTHER\tm1\tm2\nOther\t0\t16\t0\t0\n"
              "loading\t0\t0\t8192\t16384\nOther\t0\t0\t8192\t16384\nOther\t0\t0\t8192\t16384\n<time>\n");
    EXPECT_EQ(masked(ending.files.at("mem_tbb_leak_warning.vii.log")),
              "MEM: TBB Leak Checking Summary.\n\n"
              "m2 leaked 16384 bytes in 1 object(s) allocated at module.cpp:22 module_block\n"
              "m1 leaked 8192 bytes in 1 object(s) allocated at module.cpp:22 module_block\n"
              "\nTotal leaked bytes: 24576\n");
    // 16384 bytes and a mebibyte at the peak.
    EXPECT_THAT(
        ending.files.at("mem_tbb_subsystem.vii.log"),
        testing::HasSubstr(
            "blocks\nm2\t16384\t1064960\t1064960\t1064960\t1064960\t0\t1\t2\t2\nm1\t8192\t8192\t8192\t8192"));
    EXPECT_EQ(ending.files.size(), 16u);  // 14 reports and the two modules
}

TEST(Phases, CallsOfAllKindsGoOnBesideRealEvents) {
    const char* const seconds = std::getenv("KTL_MEM_STORM_SECONDS");
    expect({std::string("tracked_host storm ") + (seconds != nullptr ? seconds : "2"), phased,
            ".*tags 11 modules 1 bins 1\n"});
}

TEST(Phases, AProcessMayEndInsideADump) {
    for (const std::string dump : {"fileline", "subsystem", "modules", "tags"})
        expect({"tracked_host exit_in_dump " + dump, phased, "", "exit 5", ".*"});
}

}  // namespace
