#include "platform/shared_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace {

TEST(SharedLog, GrowsBlockByBlockWhoeverHoldsItsLock) {
    const std::string path = testing::TempDir() + "shared_log_test." + std::to_string(getpid());
    append_to_shared_log(path.c_str(), "head\n", "one\n");
    append_to_shared_log(path.c_str(), "head\n", "two\n");
    const int stopped = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(stopped, LOCK_EX), 0);
    append_to_shared_log(path.c_str(), "head\n", "three\n");
    close(stopped);
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    EXPECT_EQ(text.str(), "head\none\ntwo\nthree\n");
    unlink(path.c_str());
}

}  // namespace
