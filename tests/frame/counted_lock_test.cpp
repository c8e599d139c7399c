#include "mem/base/counted_lock.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

namespace {

TEST(CountedLock, OnlyCountsBeforeItsCreationAndAfterItsDeletion) {
    MEM_COUNTED_LOCK lock;
    lock.unlock();
    lock.lock();
    EXPECT_EQ(lock.depth(), 1u);
    lock.unlock();
    lock.create();
    lock.lock();
    lock.unlock();
    lock.destroy();
    lock.unlock();  // the one that follows the deletion
    EXPECT_EQ(lock.depth(), 0u);
}

TEST(CountedLock, IsFreshInAForkedChild) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer takes a lock that is made anew for the held one before it";
#endif
    const auto hold_and_fork = [] {
        mem_create_lock();
        std::thread([] { mem_lock.lock(); }).join();  // never released
        const pid_t child = fork();
        if (child == 0) mem_lock.lock(), _exit(0);
        int status = -1;
        waitpid(child, &status, 0);
        _exit(status);
    };
    EXPECT_EXIT(hold_and_fork(), testing::ExitedWithCode(0), "");
}

}  // namespace
