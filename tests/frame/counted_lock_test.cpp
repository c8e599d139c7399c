#include "mem/base/counted_lock.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

namespace {

TEST(CountedLock, OnlyCountsBeforeItsCreationAndAfterItsDeletion) {
    MEM_COUNTED_LOCK lock;
    lock.unlock();
    lock.lock();
    EXPECT_EQ(lock.depth(), 1u);
    lock.unlock();
    lock.create();
    lock.lock();
    lock.lock();
    lock.release_and_delete();
    lock.unlock();  // the one that follows the deletion
    EXPECT_EQ(lock.depth(), 0u);
}

TEST(CountedLock, LetsThoseGoWhoWaitAtItsDeletion) {
    MEM_COUNTED_LOCK lock;
    lock.create();
    lock.lock();
    std::vector<std::jthread> waiting;
    for (int i = 0; i < 4; ++i) waiting.emplace_back([&] { lock.lock(), lock.unlock(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    lock.release_and_delete();
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
