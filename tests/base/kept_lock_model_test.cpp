// Every interleaving of two threads, of different groups, that come to something under a MEM_KEPT_LOCK. Each
// step below is one access of a shared word, as in turns.h and turns.cpp; a turn is a lock here, which it is
// by the model of the tally.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <set>
#include <vector>

namespace {

constexpr int visits = 3, nobody = -1;

enum STEP { BEGIN, LOOK, LOCK, FIND, READ, WRITE, UNLOCK, END, STEP_OUT, HOLD_OTHER, TAKE, RELEASE, AGAIN };

struct THREAD {
    STEP at = BEGIN;
    int done = 0, read = 0;
    bool is_locked = false;

    auto operator<=>(const THREAD&) const = default;
};

struct STATE {
    std::array<THREAD, 2> threads{};
    std::array<bool, 2> has_turn{};
    int keeper = nobody;
    bool is_locked = false;
    int count = 0;

    auto operator<=>(const STATE&) const = default;  // NOLINT(modernize-use-nullptr)
};

using NEXT = std::function<void(const STATE&)>;

void find_keeper(STATE s, int me, const NEXT& next) {
    THREAD& t = s.threads[me];
    if (s.keeper == nobody) {
        t.at = READ;
        t.is_locked = true;
        next(s);
        s.keeper = me;  // or it has come often enough in a row
    }
    t.is_locked = s.is_locked = false;
    t.at = s.keeper == me ? READ : STEP_OUT;
    next(s);
}

// Calls next for each state that the thread's step can lead to.
void step(STATE s, int me, const NEXT& next) {
    THREAD& t = s.threads[me];
    const int other = 1 - me;
    const auto go_to = [&](STEP at) { t.at = at, next(s); };
    const auto take = [&](bool& lock, STEP at) {
        if (!lock) lock = true, go_to(at);
    };
    switch (t.at) {
        case BEGIN:
            if (t.done < visits) take(s.has_turn[me], LOOK);
            return;
        case LOOK:
            return go_to(s.keeper == me ? READ : LOCK);
        case LOCK:
            return take(s.is_locked, FIND);
        case FIND:
            return find_keeper(s, me, next);
        case READ:
            t.read = s.count;
            return go_to(WRITE);
        case WRITE:
            s.count = t.read + 1;
            return go_to(t.is_locked ? UNLOCK : END);
        case UNLOCK:
            t.is_locked = s.is_locked = false;
            return go_to(END);
        case END:
            s.has_turn[me] = false;
            ++t.done;
            return go_to(BEGIN);
        case STEP_OUT:
            s.has_turn[me] = false;
            return go_to(HOLD_OTHER);
        case HOLD_OTHER:
            return take(s.has_turn[other], TAKE);
        case TAKE:
            if (s.keeper == other) s.keeper = nobody;
            return go_to(RELEASE);
        case RELEASE:
            s.has_turn[other] = false;
            return go_to(AGAIN);
        case AGAIN:
            return take(s.has_turn[me], LOCK);
    }
}

TEST(KeptLockModel, NoInterleavingLosesAMove) {
    std::set<STATE> seen{STATE{}};
    std::vector<STATE> open{STATE{}};
    std::size_t ends = 0, wrong = 0, stuck = 0;
    while (!open.empty()) {
        const STATE s = open.back();
        open.pop_back();
        bool moved = false;
        for (int me = 0; me < 2; ++me)
            step(s, me, [&](const STATE& after) {
                moved = true;
                if (seen.insert(after).second) open.push_back(after);
            });
        if (moved) continue;
        const bool is_done = s.threads[0].done == visits && s.threads[1].done == visits;
        is_done ? ++ends : ++stuck;
        wrong += s.count != 2 * visits;
    }
    EXPECT_EQ(wrong, 0U) << "a move was lost";
    EXPECT_EQ(stuck, 0U) << "nobody could move";
    EXPECT_GT(ends, 1U) << "nobody, or always the same one, is the keeper in the end";
    EXPECT_GT(seen.size(), 1000U);
}

}  // namespace
