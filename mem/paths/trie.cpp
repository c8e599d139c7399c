#include "mem/paths/trie.h"

#include <new>

#include "platform/mapped_memory.h"

namespace {

constexpr std::uint32_t first_buckets = 1024;
constexpr std::size_t first_pcs = 1024;

std::size_t home_of(std::uint64_t pc, std::size_t mask) {
    return static_cast<std::size_t>((pc * 0x9e3779b97f4a7c15U) >> 32) & mask;
}

}  // namespace

MEM_PATH_TRIE::~MEM_PATH_TRIE() {
    for (BUCKETS* buckets = current.load(std::memory_order_relaxed); buckets != nullptr;) {
        BUCKETS* outgrown = buckets->outgrown;
        unmap_memory(buckets, buckets->bytes());
        buckets = outgrown;
    }
    if (pcs.slots != nullptr) unmap_memory(pcs.slots, (pcs.mask + 1) * sizeof *pcs.slots);
}

bool MEM_PATH_TRIE::create() {
    current.store(make_buckets(first_buckets, nullptr), std::memory_order_release);
    return current.load(std::memory_order_relaxed) != nullptr;
}

MEM_PATH_TRIE::BUCKETS* MEM_PATH_TRIE::make_buckets(std::uint32_t count, BUCKETS* outgrown) {
    void* bytes = map_memory(BUCKETS::bytes_for(count));
    return bytes == nullptr ? nullptr : new (bytes) BUCKETS{outgrown, count - 1};
}

std::uint32_t MEM_PATH_TRIE::INSERTION::child(std::uint32_t parent, std::uint64_t pc, std::uint16_t load) {
    const auto is_same = [&](const MEM_PATH_NODE& node) { return node.load == load; };
    const std::uint32_t same = parent == latest && latest != none ? none : trie.find_if(parent, pc, is_same);
    if (same != none) {
        trie.memory.region.node(same).generation.set(generation);
        return same;
    }
    if (trie.memory.region.header->nodes.get() >= limit) return none;
    latest = trie.make(parent, pc, load, generation);
    return latest;
}

std::uint32_t MEM_PATH_TRIE::make(std::uint32_t parent, std::uint64_t pc, std::uint16_t load,
                                  std::uint16_t generation) {
    MEM_PATH_WORD<std::uint32_t>& count = memory.region.header->nodes;
    const std::uint32_t number = count.get();
    if (!memory.reserve_node(number)) return none;
    MEM_PATH_NODE& node = memory.region.node(number);
    node.pc = pc;
    node.parent = parent;
    node.load = load;
    node.generation.set(generation);
    count.publish(number + 1);
    add_child(parent, number);
    return number;
}

void MEM_PATH_TRIE::add_child(std::uint32_t parent, std::uint32_t number) {
    MEM_PATH_WORD<std::uint32_t>& first_child = memory.region.node(parent).first_child;
    if (first_child.get() == none) {
        first_child.publish(number);
        return;
    }
    add_buckets();
    memory.region.node(number).is_chained = true;
    chain(*current.load(std::memory_order_relaxed), number);
    ++chained;
}

void MEM_PATH_TRIE::chain(BUCKETS& buckets, std::uint32_t number) {
    MEM_PATH_NODE& node = memory.region.node(number);
    MEM_PATH_WORD<std::uint32_t>& head = buckets.head(node.parent, node.pc);
    node.next.publish(head.get());
    head.publish(number);
}

// Without memory for more the chains grow longer.
void MEM_PATH_TRIE::add_buckets() {
    BUCKETS* outgrown = current.load(std::memory_order_relaxed);
    if (chained <= outgrown->mask) return;
    BUCKETS* more = make_buckets(2 * (outgrown->mask + 1), outgrown);
    if (more == nullptr) return;
    // In the order of the numbers, so that a search in an old chain that comes to a node of the new ones goes
    // on to nodes with lower numbers, and ends.
    const std::uint32_t nodes = memory.region.header->nodes.get();
    for (std::uint32_t number = mem_path_first_node; number < nodes; ++number)
        if (memory.region.node(number).is_chained) chain(*more, number);
    current.store(more, std::memory_order_release);
}

__attribute__((noinline, cold)) std::uint32_t MEM_PATH_TRIE::open_account(std::uint32_t node) {
    const std::lock_guard<MEM_SPIN_LOCK> guard(lock);
    MEM_PATH_WORD<std::uint32_t>& account = memory.region.node(node).account;
    if (account.get() != 0) return account.get();
    MEM_PATH_WORD<std::uint32_t>& count = memory.region.header->accounts;
    const std::uint32_t number = count.get();
    if (!memory.reserve_account(number)) return none;
    memory.region.late_counts(number).node = node;
    count.publish(number + 1);
    account.publish(number);
    return number;
}

// True when it was there. Without memory everything counts as new.
bool MEM_PATH_TRIE::PC_SET::insert(std::uint64_t pc) {
    if (2 * (used + 1) > (slots == nullptr ? 0 : mask + 1)) grow();
    if (slots == nullptr || used == mask) return false;
    std::size_t at = home_of(pc, mask);
    while (slots[at] != 0 && slots[at] != pc) at = (at + 1) & mask;
    if (slots[at] == pc) return true;
    slots[at] = pc;
    ++used;
    return false;
}

void MEM_PATH_TRIE::PC_SET::grow() {
    const std::size_t count = slots == nullptr ? first_pcs : 2 * (mask + 1);
    auto* more = static_cast<std::uint64_t*>(map_memory(count * sizeof *slots));
    if (more == nullptr) return;
    for (std::size_t i = 0; slots != nullptr && i <= mask; ++i) {
        if (slots[i] == 0) continue;
        std::size_t at = home_of(slots[i], count - 1);
        while (more[at] != 0) at = (at + 1) & (count - 1);
        more[at] = slots[i];
    }
    if (slots != nullptr) unmap_memory(slots, (mask + 1) * sizeof *slots);
    slots = more;
    mask = count - 1;
}
