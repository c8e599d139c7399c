// Every interleaving of two threads on a tally that is spread, on a model of its shared words, with the locks
// of their groups. Each step below is one access of a shared word, as in tally.cpp and share_locks.h. What an
// owner writes waits in the store buffer of its processor, in order, and comes out at any later moment, or at
// a barrier.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <set>
#include <vector>

namespace {

// What each thread does: a charge or a free of one block.
constexpr std::array<std::array<int, 4>, 2> scripts{{{-1, +1, +1, -1}, {-1, +1, +1, +1}}};

enum STEP {
    ENTER,
    MARK,
    LOOK,
    ACT,
    LEAVE,
    ANSWER,
    LOCK,
    ACT_LOCKED,
    UNLOCK,
    HOLD_0,
    HOLD_1,
    ASK,
    HEAR,
    DISOWN,
    BARRIER,
    WAIT,
    SETTLE
};

struct THREAD {
    STEP at = ENTER;
    int done = 0;  // of its script
    bool goes_on_to_lock = false, must_settle = false;
    // Values of inside and count to come out, and whether the owner gives up; oldest first.
    std::vector<std::array<int, 3>> buffer{};

    auto operator<=>(const THREAD&) const = default;  // NOLINT(modernize-use-nullptr)
};

struct STATE {
    std::array<THREAD, 2> threads;
    // As the other one sees them.
    std::array<std::array<int, 2>, 2> inside_and_count{{{0, 1}, {0, 1}}};
    std::array<bool, 2> is_owner{true, true}, is_wanted{}, is_locked{};
    std::array<int, 2> limit{1, 1};
    int highest = 2;
    // In the order of the moves themselves.
    int sum = 2, true_highest = 2;
    bool was_wrong = false;  // after some settlement

    auto operator<=>(const STATE&) const = default;  // NOLINT(modernize-use-nullptr)

    std::array<int, 2> own(int me) const {
        const auto& buffer = threads[me].buffer;
        return buffer.empty() ? inside_and_count[me] : std::array{buffer.back()[0], buffer.back()[1]};
    }
    bool knows_itself_owner(int me) const {
        const auto& buffer = threads[me].buffer;
        return is_owner[me] && (buffer.empty() || buffer.back()[2] == 0);
    }
    void write(int me, int inside, int count, bool gives_up = false) {
        threads[me].buffer.push_back({inside, count, gives_up});
    }
    void drain(int me) {
        THREAD& thread = threads[me];
        const auto [inside, count, gives_up] = thread.buffer.front();
        inside_and_count[me] = {inside, count};
        if (gives_up != 0) is_owner[me] = false;
        thread.buffer.erase(thread.buffer.begin());
    }
    void note(int move) { true_highest = std::max(true_highest, sum += move); }
};

// The settlement of a charge that has no room, as if all locks were held.
void settle(STATE& s, int me) {
    auto& count = s.inside_and_count;
    ++count[me][1];
    s.note(1);
    int& other_limit = s.limit[1 - me];
    const int others_room = other_limit - count[1 - me][1];
    if (others_room > 0) {
        const int half = others_room - others_room / 2;
        other_limit -= half;
        s.limit[me] += half;
    } else {
        s.highest = std::max(s.highest, count[0][1] + count[1][1]);
        s.limit = {count[0][1], count[1][1]};
    }
}

void go_on(STATE& s, int me) {
    THREAD& t = s.threads[me];
    t.at = t.must_settle ? HOLD_0 : t.goes_on_to_lock ? LOCK : ENTER;
    if (!t.must_settle && !t.goes_on_to_lock) ++t.done;
    t.must_settle = t.goes_on_to_lock = false;
}

// True when the charge or free found room.
bool act(STATE& s, int me, bool is_buffered) {
    const int move = scripts[me][s.threads[me].done];
    const auto [inside, count] = s.own(me);
    if (move > 0 && count >= s.limit[me]) return false;
    s.note(move);
    if (is_buffered) {
        s.write(me, inside, count + move);
    } else {
        s.inside_and_count[me][1] += move;
    }
    return true;
}

// Calls next for each state that the thread's step can lead to.
void step(STATE s, int me, const std::function<void(const STATE&)>& next) {
    THREAD& t = s.threads[me];
    if (t.done == static_cast<int>(scripts[me].size()) || t.buffer.size() > 3) return;
    const int my_count = s.own(me)[1], other = 1 - me;
    switch (t.at) {
        case ENTER:
            t.at = s.knows_itself_owner(me) ? MARK : LOCK;
            return next(s);
        case MARK:
            s.write(me, 1, my_count);
            t.at = LOOK;
            return next(s);
        case LOOK:
            t.goes_on_to_lock = !s.knows_itself_owner(me);
            t.at = t.goes_on_to_lock ? LEAVE : ACT;
            return next(s);
        case ACT:
            t.must_settle = !act(s, me, true);
            t.at = LEAVE;
            return next(s);
        case LEAVE:
            s.write(me, 0, my_count);
            t.at = ANSWER;
            return next(s);
        case ANSWER:
            if (s.is_wanted[me]) s.write(me, 0, my_count, true);
            go_on(s, me);
            return next(s);
        case LOCK:
            if (s.is_locked[me] || !t.buffer.empty()) return;  // a locked instruction empties the buffer
            s.is_locked[me] = true;
            t.at = ACT_LOCKED;
            return next(s);
        case ACT_LOCKED:
            t.must_settle = !act(s, me, false);
            t.at = UNLOCK;
            next(s);
            s.is_owner[me] = true;  // or it has had many turns
            return next(s);
        case UNLOCK:
            s.is_locked[me] = false;
            go_on(s, me);
            return next(s);
        case HOLD_0:
        case HOLD_1:
            if (s.is_locked[t.at - HOLD_0] || !t.buffer.empty()) return;
            s.is_locked[t.at - HOLD_0] = true;
            t.at = static_cast<STEP>(t.at + 1);
            return next(s);
        case ASK:
            s.is_wanted[other] = s.is_owner[other];
            t.at = s.is_owner[other] ? HEAR : SETTLE;
            return next(s);
        case HEAR:  // and has heard nothing for long enough, where the other is still the owner
            s.is_wanted[other] = false;
            t.at = s.is_owner[other] ? DISOWN : SETTLE;
            return next(s);
        case DISOWN:
            s.is_owner[other] = false;
            t.at = BARRIER;
            return next(s);
        case BARRIER:
            for (int who = 0; who < 2; ++who)
                while (!s.threads[who].buffer.empty()) s.drain(who);
            t.at = WAIT;
            return next(s);
        case WAIT:
            if (s.inside_and_count[other][0] != 0) return;
            t.at = SETTLE;
            return next(s);
        case SETTLE:
            settle(s, me);
            s.was_wrong |= s.highest != s.true_highest;
            s.is_locked = {false, false};
            go_on(s, me);
            return next(s);
    }
}

TEST(TallyModel, NoInterleavingMakesAWrongMaximum) {
    std::set<STATE> seen;
    std::vector<STATE> open;
    const auto visit = [&](const STATE& s) {
        if (seen.insert(s).second) open.push_back(s);
    };
    visit(STATE{});
    std::size_t ends = 0, wrong = 0, stuck = 0;
    while (!open.empty()) {
        const STATE s = open.back();
        open.pop_back();
        const std::size_t before = open.size();
        bool moved = false;
        const auto next = [&](const STATE& after) { moved = true, visit(after); };
        for (int me = 0; me < 2; ++me) {
            step(s, me, next);
            if (s.threads[me].buffer.empty()) continue;
            STATE drained = s;
            drained.drain(me);
            next(drained);
        }
        if (moved) continue;
        EXPECT_EQ(before, open.size());
        const bool is_done = s.threads[0].done == 4 && s.threads[1].done == 4;
        is_done ? ++ends : ++stuck;
        wrong += s.was_wrong || s.highest != s.true_highest ||
                 s.inside_and_count[0][1] + s.inside_and_count[1][1] != s.sum;
    }
    EXPECT_EQ(wrong, 0U) << "a maximum or a sum that no order of the events has";
    EXPECT_EQ(stuck, 0U) << "nobody could move";
    EXPECT_GT(ends, 1U);
    EXPECT_GT(seen.size(), 1000U);
}

}  // namespace
