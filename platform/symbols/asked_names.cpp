#include "platform/symbols/asked_names.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace symbols {
namespace {

// How long is waited without a sign of life, in slices: one that a stopped process sleeps through counts
// once.
constexpr int slice_ms = 50;
constexpr int most_slices = 20;

std::atomic<NAME_CHANNEL*> used_channel{nullptr};
std::atomic<NAME_BELL*> used_bell{nullptr};
std::atomic<const NAME_TABLE*> used_table{nullptr};
std::atomic<int> waiting_for_slot{0};
std::atomic<bool> is_alone{false};

// The child shares the memory with its parent, and must not write there. One that shares all of the parent's
// memory, as between vfork and exec, runs no such handler, and asks as the parent does.
void forget_channel_in_child() {
    used_channel = nullptr;
    is_alone = false;
}

void give_up() {
    NAME_CHANNEL* channel = used_channel.exchange(nullptr);
    if (channel == nullptr) return;
    is_alone = true;
    channel->is_given_up.store(1);
    ++channel->freed;
    wake_waiting(&channel->freed);
}

// Runs `is_done` until it is true; false when the other side gives no sign of life for too long.
template <class CONDITION>
bool wait_until(const void* word, CONDITION is_done) {
    const NAME_BELL& bell = *used_bell.load();
    std::uint32_t pulse = bell.pulse.load();
    for (int slices = 0; slices < most_slices;) {
        std::uint32_t value = 0;
        if (is_done(value)) return true;  // also sets the value that is waited on
        const bool is_slice_over = wait_for_change(word, value, slice_ms);
        if (is_done(value)) return true;
        const std::uint32_t now = bell.pulse.load();
        if (now != pulse) slices = 0;
        if (now == pulse && is_slice_over) ++slices;
        pulse = now;
    }
    return false;
}

// A slot of this thread's own, for as long as it lives.
class CLAIMED_SLOT {
  public:
    explicit CLAIMED_SLOT(NAME_CHANNEL& all) : channel(all) {
        slot = claim();
        if (slot != nullptr) return;
        ++waiting_for_slot;
        wait_until(&channel.freed, [this](std::uint32_t& freed) {
            freed = channel.freed.load();
            slot = claim();
            return slot != nullptr || used_channel.load() == nullptr;
        });
        --waiting_for_slot;
    }
    ~CLAIMED_SLOT() {
        if (slot == nullptr || !is_returned) return;
        slot->state.store(SLOT_STATE::FREE);
        ++channel.freed;
        if (waiting_for_slot.load() != 0) wake_waiting(&channel.freed);
    }
    CLAIMED_SLOT(const CLAIMED_SLOT&) = delete;
    CLAIMED_SLOT& operator=(const CLAIMED_SLOT&) = delete;

    // Puts the question and waits. False without an answer; the slot is then never used again.
    bool exchange(const std::string& question, std::string& answer) {
        if (slot == nullptr || question.size() > sizeof slot->text) return false;
        std::memcpy(slot->text, question.data(), question.size());
        slot->size = static_cast<std::uint32_t>(question.size());
        slot->state.store(SLOT_STATE::ASKED);
        NAME_BELL& bell = *used_bell.load();
        ++bell.rings;
        wake_waiting(&bell.rings);
        is_returned = wait_until(&slot->state, [this](std::uint32_t& state) {
            state = static_cast<std::uint32_t>(SLOT_STATE::ASKED);
            return slot->state.load() == SLOT_STATE::ANSWERED;
        });
        if (is_returned) answer.assign(slot->text, std::min<std::size_t>(slot->size, sizeof slot->text));
        return is_returned;
    }

  private:
    NAME_SLOT* claim() {
        for (NAME_SLOT& candidate : channel.slots) {
            SLOT_STATE expected = SLOT_STATE::FREE;
            if (candidate.state.compare_exchange_strong(expected, SLOT_STATE::CLAIMED)) return &candidate;
        }
        return nullptr;
    }

    NAME_CHANNEL& channel;
    NAME_SLOT* slot = nullptr;
    bool is_returned = true;
};

bool exchange(NAME_CHANNEL& channel, const std::string& question, std::string& answer) {
    return CLAIMED_SLOT(channel).exchange(question, answer);
}

// What is left of a question behind its first addresses.
NAME_QUESTION rest_of(const NAME_QUESTION& question, std::size_t begin, std::size_t count) {
    NAME_QUESTION rest{question.path, question.build_id, question.is_executable, {}};
    const auto first = question.addresses.begin() + static_cast<std::ptrdiff_t>(begin);
    rest.addresses.assign(first, first + static_cast<std::ptrdiff_t>(count));
    return rest;
}

// More addresses than this are asked for in several turns.
constexpr std::size_t most_addresses = 1024;

// As many of the addresses from `begin` on as one answer holds, at least one.
bool ask_some(NAME_CHANNEL& channel, const NAME_QUESTION& question, std::size_t begin,
              std::vector<std::vector<FRAME>>& answers) {
    TEXT_WRITER writer;
    write_question(rest_of(question, begin, std::min(most_addresses, question.addresses.size() - begin)),
                   writer);
    std::string answer;
    if (!exchange(channel, writer.get(), answer)) return false;
    TEXT_READER reader(answer);
    const auto count = reader.number<std::uint32_t>();
    if (count == 0 || count > question.addresses.size() - begin) return false;
    for (std::uint32_t i = 0; i < count; ++i)
        if (!read_levels(reader, answers.emplace_back())) return false;
    return true;
}

}  // namespace

void use_name_channel(NAME_CHANNEL* channel, NAME_BELL* bell, const NAME_TABLE* table) {
    static const int is_forgotten = pthread_atfork(nullptr, nullptr, forget_channel_in_child);
    static_cast<void>(is_forgotten);
    used_bell = bell;
    used_table = table != nullptr && table->mark == name_table_mark ? table : nullptr;
    used_channel = channel;
}

bool can_ask() {
    return used_channel.load(std::memory_order_relaxed) != nullptr;
}

const NAME_TABLE* known_names() {
    return used_table.load(std::memory_order_acquire);
}

bool is_left_alone() {
    return is_alone.load();
}

bool ask(const std::vector<NAME_QUESTION>& questions, std::vector<std::vector<FRAME>>& answers) {
    answers.clear();
    NAME_CHANNEL* channel = used_channel.load();
    if (channel == nullptr) return false;
    std::size_t before = 0;
    for (const NAME_QUESTION& question : questions) {
        while (answers.size() - before < question.addresses.size()) {
            if (ask_some(*channel, question, answers.size() - before, answers)) continue;
            give_up();
            return false;
        }
        before = answers.size();
    }
    return true;
}

}  // namespace symbols
