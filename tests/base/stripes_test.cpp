#include "mem/base/stripes.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <thread>

#include "platform/thread.h"

namespace {

// Asks in each round of the key destructors, after the library's own.
pthread_key_t late_key;
void ask_late(void* again) {
    mem_thread_stripe();
    pthread_setspecific(late_key, again);
}

TEST(Stripes, ComeBackFromThreadsThatAskAtTheVeryEnd) {
    if (!can_run_barrier_on_all_threads()) GTEST_SKIP() << "stripes are shared here";
    ASSERT_EQ(pthread_key_create(&late_key, ask_late), 0);
    for (std::uint32_t i = 0; i < 2 * mem_stripe_count; ++i)
        std::thread([&] {
            EXPECT_TRUE(mem_thread_stripe().is_own) << "thread " << i;
            pthread_setspecific(late_key, &late_key);
        }).join();
    pthread_key_delete(late_key);
}

// The destructor of the library's own key has no further round after the last one.
void ask_at_last(void* round) {
    if (round == &late_key + PTHREAD_DESTRUCTOR_ITERATIONS - 1) mem_thread_stripe();
    pthread_setspecific(late_key, static_cast<pthread_key_t*>(round) + 1);
}

TEST(Stripes, ComeBackFromThreadsThatNeverGaveThemBack) {
    if (!can_run_barrier_on_all_threads()) GTEST_SKIP() << "stripes are shared here";
    ASSERT_EQ(pthread_key_create(&late_key, ask_at_last), 0);
    for (std::uint32_t i = 0; i < 2 * mem_stripe_count; ++i)
        std::thread([] { pthread_setspecific(late_key, &late_key); }).join();
    pthread_key_delete(late_key);
    std::thread([] { EXPECT_TRUE(mem_thread_stripe().is_own); }).join();
}

}  // namespace
