#include "tests/process/child_process.h"

TEST(ProcessFigures, OfAnotherUserAreTheKernels) {
    expect(
        {"sh -c 'p=$$; [ $(id -u) = 0 ] || p=1; tracked_host script change_user peak_of $p > ours; "
         "awk \"/VmData|VmStk/ { sum += \\$2 } END { print sum * 1024 }\" /proc/$p/status | diff ours -'"});
}

TEST(ProcessFigures, WithoutTheKernelsFilesAreZero) {
    const auto without_proc = [](const std::string& command) {
        return "unshare -rm sh -c 'mount -t tmpfs none /proc && exec env " + command + "'";
    };
    if (const ENDING mount = run(without_proc("true")); mount.how != "exit 0")
        GTEST_SKIP() << "nothing may be mounted here: " << mount.error;
    expect({without_proc("debug_msg=on tracked_host script mapped in_use"), "",
            "Debug: MEM: No such process\n0\n0\nDebug: MEM: Native.*"});
    // Every event fails to read them here.
    expect({without_proc(track_all + "VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=1 tracked_host script "
                                     "malloc a 1152921504606846976 malloc b 64 errno free b errno "
                                     "map m 4096 errno unmap m 4096 errno"),
            "", "(ENOMEM\n){4}"});
    // The tracker counts, and cannot say where: ten blocks of the program, 1,024 bytes each.
    EXPECT_TRUE(expect({without_proc(track_all + "LD_PRELOAD=" KTL_MEM ":" TCMALLOC_MINIMAL " plain_host")})
                    .has_call_site("OTHER\t10240\t"));
}
