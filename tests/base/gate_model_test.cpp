// Every interleaving of two mice and two cats through the gate's steps, on a model of its shared words. Each
// step below is one access of a shared word, as in gate.h and gate.cpp. What a mouse writes to its stripe,
// which is its own, waits in the store buffer of its processor and comes out at any later moment, or at a
// cat's barrier.
#include <gtest/gtest.h>

#include <array>
#include <set>
#include <vector>

namespace {

constexpr int actors = 4;  // 0 and 1 are mice with a stripe each, 2 and 3 are cats

struct STRIPE {
    int seen = 0;                 // by the cats
    std::array<int, 2> buffer{};  // what the mouse wrote since, oldest first
    int buffered = 0;

    auto operator<=>(const STRIPE&) const = default;
    int written() const { return buffered == 0 ? seen : buffer[buffered - 1]; }
    bool write(int value) {
        if (buffered == 2) return false;
        buffer[buffered++] = value;
        return true;
    }
    bool drain_one() {
        if (buffered == 0) return false;
        seen = buffer[0];
        buffer = {buffer[1], 0};
        --buffered;
        return true;
    }
};

struct STATE {
    std::array<STRIPE, 2> stripes{};
    int announced = 0;
    int inside_word = 0;
    int lock_owner = -1;
    std::array<int, actors> at{};  // step of each actor

    auto operator<=>(const STATE&) const = default;  // NOLINT(modernize-use-nullptr)
};

bool word_is_zero(const STATE& s) {
    return s.announced == 0 && s.inside_word == 0;
}

bool move(STATE& s, int me, int amount) {
    return s.stripes[me].write(s.stripes[me].written() + amount);
}

// Takes an actor's step and gives the number of its next one, or STUCK when it can't move.
using STEP = int (*)(STATE& s, int me);
constexpr int STUCK = -1;

constexpr int COUNT = 0, LOOK = 1, STEP_BACK = 2, WAIT = 3, INSIDE = 4, UNCOUNT = 5, MOUSE_DONE = 6;
constexpr STEP mouse_steps[] = {
    [](STATE& s, int me) { return move(s, me, 1) ? LOOK : STUCK; },
    [](STATE& s, int) { return word_is_zero(s) ? INSIDE : STEP_BACK; },
    [](STATE& s, int me) { return move(s, me, -1) ? WAIT : STUCK; },
    [](STATE& s, int) { return word_is_zero(s) ? COUNT : STUCK; },
    [](STATE&, int) { return UNCOUNT; },
    [](STATE& s, int me) { return move(s, me, -1) ? MOUSE_DONE : STUCK; },
    [](STATE&, int) { return STUCK; },
};

constexpr int LOCK = 1, TEST_CATS = 2, TEST_FIRST = 3, TEST_SECOND = 4, UNLOCK_OUT = 5;
constexpr int ENTER = 6, UNLOCK_IN = 7, TAKE_BACK = 8, ALONE = 9, LEAVE = 10, BARRIER = 11, CAT_DONE = 12;
constexpr STEP cat_steps[] = {
    [](STATE& s, int) { return ++s.announced, BARRIER; },
    [](STATE& s, int me) { return s.lock_owner != -1 ? STUCK : (s.lock_owner = me, TEST_CATS); },
    [](STATE& s, int) { return s.inside_word == 0 ? TEST_FIRST : UNLOCK_OUT; },
    [](STATE& s, int) { return s.stripes[0].seen == 0 ? TEST_SECOND : UNLOCK_OUT; },
    [](STATE& s, int) { return s.stripes[1].seen == 0 ? ENTER : UNLOCK_OUT; },
    [](STATE& s, int) { return s.lock_owner = -1, LOCK; },
    [](STATE& s, int) { return ++s.inside_word, UNLOCK_IN; },
    [](STATE& s, int) { return s.lock_owner = -1, TAKE_BACK; },
    [](STATE& s, int) { return --s.announced, ALONE; },
    [](STATE&, int) { return LEAVE; },
    [](STATE& s, int) { return s.lock_owner != -1 ? STUCK : (--s.inside_word, CAT_DONE); },
    [](STATE& s, int) {
        for (STRIPE& stripe : s.stripes)
            while (stripe.drain_one()) {
            }
        return LOCK;
    },
    [](STATE&, int) { return STUCK; },
};

bool mouse_is_inside(const STATE& s, int me) {
    return s.at[me] == INSIDE || s.at[me] == UNCOUNT;
}
bool cat_is_inside(const STATE& s, int me) {
    return s.at[me] >= UNLOCK_IN && s.at[me] <= LEAVE;
}

struct EXPLORATION {
    std::set<STATE> seen;
    std::size_t ends = 0, two_mice = 0, broken = 0, stuck = 0;

    void check(const STATE& s) {
        const int mice = mouse_is_inside(s, 0) + mouse_is_inside(s, 1);
        const int cats = cat_is_inside(s, 2) + cat_is_inside(s, 3);
        if (cats > 1 || (cats == 1 && mice > 0)) ++broken;
        if (mice == 2) ++two_mice;
    }

    void run() {
        std::vector<STATE> open{STATE{}};
        seen.insert(STATE{});
        while (!open.empty()) {
            const STATE s = open.back();
            open.pop_back();
            check(s);
            bool moved = false;
            for (int me = 0; me < actors; ++me) {
                STATE next = s;
                next.at[me] = (me < 2 ? mouse_steps : cat_steps)[s.at[me]](next, me);
                if (next.at[me] == STUCK) continue;
                moved = true;
                if (seen.insert(next).second) open.push_back(next);
            }
            for (int mouse = 0; mouse < 2; ++mouse) {
                STATE next = s;
                if (!next.stripes[mouse].drain_one()) continue;
                moved = true;
                if (seen.insert(next).second) open.push_back(next);
            }
            const bool done =
                !moved && s.at == std::array<int, actors>{MOUSE_DONE, MOUSE_DONE, CAT_DONE, CAT_DONE};
            ends += done;
            stuck += !moved && !done;
        }
    }
};

TEST(GateModel, NoInterleavingBreaksTheGate) {
    EXPLORATION all;
    all.run();
    EXPECT_EQ(all.broken, 0U) << "a cat was not alone";
    EXPECT_EQ(all.stuck, 0U) << "nobody could move";
    EXPECT_EQ(all.ends, 1U) << "the words are not back at zero in every end";
    EXPECT_GT(all.two_mice, 0U) << "mice never ran together";
    EXPECT_GT(all.seen.size(), 1000U);
}

}  // namespace
