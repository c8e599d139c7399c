#include <regex>

#include "tests/process/child_process.h"

namespace {

std::string masked(const std::string& text) {
    const std::string timeless = std::regex_replace(text, std::regex("Time spent dumping:.*\\."), "<time>");
    return std::regex_replace(timeless, std::regex("/[^\t\n]*/"), "");
}

// Two modules allocate, each in a bin of one tag, the second of which sees a sample; then the second module
// takes a mebibyte and gives it back, which makes the peak. The library's own load makes no event, so that
// the first module's block is the first event and the first sample.
TEST(Phases, ReportsTellTheModulesOfTheRun) {
    const ENDING ending = expect(
        {"sh -c 'cp " + module_path + " libm1.so; cp libm1.so libm2.so; exec tracked_host script block " +
             "reset plugin x ./libm1.so plugin y ./libm2.so " +
             "open m1 loading unblock call x a 8192 block close loading " +
             "open m2 loading unblock call y b 16384 block sample close loading " +
             "unblock call y c 1048576 free c block'",
         track_all + "VELDRIN_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD=1000000", "(was blocked .\n)*"});
    EXPECT_EQ(masked(ending.files.at("mem_tbb_timeline.vii.log")),
              "MEM: TBB Module Tracking Memory Timeline.\n\n\tMisc\tm1\tm2\nloading\t0\t8192\t0\n"
              "loading\t0\t8192\t16384\nOther\t0\t8192\t16384\nOther\t0\t8192\t16384\n<time>\n");
    EXPECT_EQ(masked(ending.files.at("mem_tbb_leak_warning.vii.log")),
              "MEM: TBB Leak Checking Summary.\n\n"
              "m2 leaked 16384 bytes in 1 object(s) allocated at module.cpp:24 module_block\n"
              "m1 leaked 8192 bytes in 1 object(s) allocated at module.cpp:24 module_block\n"
              "\nTotal leaked bytes: 24576\n");
    // 16384 bytes and a mebibyte at the peak.
    EXPECT_THAT(
        ending.files.at("mem_tbb_subsystem.vii.log"),
        testing::HasSubstr(
            "blocks\nm2\t16384\t1064960\t1064960\t1064960\t1064960\t0\t1\t2\t2\nm1\t8192\t8192\t8192\t8192"));
    EXPECT_EQ(ending.files.size(), 17u);  // 15 reports and the two modules
}

}  // namespace
