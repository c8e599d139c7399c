#include "mem/paths/trie.h"

#include <new>

#include "platform/mapped_memory.h"

namespace {

constexpr std::uint32_t first_slots = 1024;
constexpr std::uint32_t kept_ready = 2048;
// Beyond the limit of whole paths.
constexpr std::uint32_t most_cut_paths = std::uint32_t{1} << 16;
constexpr std::size_t first_pcs = 1024;

std::size_t home_of(std::uint64_t pc, std::size_t mask) {
    return static_cast<std::size_t>((pc * 0x9e3779b97f4a7c15U) >> 32) & mask;
}

}  // namespace

MEM_PATH_TRIE::~MEM_PATH_TRIE() {
    for (TABLE* table = current.load(std::memory_order_relaxed); table != nullptr;) {
        TABLE* outgrown = table->outgrown;
        unmap_memory(table, table->bytes());
        table = outgrown;
    }
    if (pcs.slots != nullptr) unmap_memory(pcs.slots, (pcs.mask + 1) * sizeof *pcs.slots);
}

bool MEM_PATH_TRIE::create() {
    current.store(make_table(first_slots, nullptr), std::memory_order_release);
    return current.load(std::memory_order_relaxed) != nullptr;
}

MEM_PATH_TRIE::TABLE* MEM_PATH_TRIE::make_table(std::uint32_t slots, TABLE* outgrown) {
    void* bytes = map_memory_to_fill(TABLE::bytes_for(slots));
    return bytes == nullptr ? nullptr : new (bytes) TABLE{outgrown, slots - 1};
}

void MEM_PATH_TRIE::TABLE::enter(std::uint32_t hash, std::uint32_t number) {
    std::uint32_t place = hash;
    while (slot(place).get() != 0) ++place;
    slot(place).publish(std::uint64_t{hash} << 32 | number);
}

std::uint32_t MEM_PATH_TRIE::INSERTION::child(std::uint32_t parent, std::uint64_t pc, std::uint16_t load) {
    const auto is_same = [&](const MEM_PATH_NODE& node) { return node.load == load; };
    const std::uint32_t same = parent == latest && latest != none ? none : trie.find_if(parent, pc, is_same);
    if (same != none) {
        trie.memory.region.node(same).generation.set(generation);
        return same;
    }
    if (!trie.has_room(trie.memory.region.header->nodes.get(), parent, path)) return none;
    latest = trie.make(parent, pc, load, generation);
    return latest;
}

std::uint32_t MEM_PATH_TRIE::kept_ready_beside(PATH path) {
    return path == PATH::whole ? kept_ready : 0;
}

bool MEM_PATH_TRIE::has_room(std::uint32_t number, std::uint32_t parent, PATH path) {
    const std::uint32_t limit = memory.region.header->most_nodes + (path == PATH::cut ? most_cut_paths : 0);
    return number < limit && memory.reserve_node(number + kept_ready_beside(path)) &&
           has_slot_for_child(parent, path);
}

std::uint32_t MEM_PATH_TRIE::make(std::uint32_t parent, std::uint64_t pc, std::uint16_t load,
                                  std::uint16_t generation) {
    MEM_PATH_WORD<std::uint32_t>& count = memory.region.header->nodes;
    const std::uint32_t number = count.get();
    MEM_PATH_NODE& node = memory.region.node(number);
    node.pc = pc;
    node.parent = parent;
    node.load = load;
    node.generation.set(generation);
    count.publish(number + 1);
    add_child(parent, number);
    return number;
}

// Adds slots where it takes more of them. Without memory for that, whole paths fill five eighths of the
// table, and those that were cut seven eighths.
bool MEM_PATH_TRIE::has_slot_for_child(std::uint32_t parent, PATH path) {
    if (memory.region.node(parent).first_child.get() == none) return true;
    TABLE* table = current.load(std::memory_order_relaxed);
    const std::uint32_t slots = table->mask + 1;
    if (slots_taken < slots / 2) return true;
    TABLE* more = make_table(2 * slots, table);
    if (more == nullptr) return slots_taken < slots / 8 * (path == PATH::whole ? 5 : 7);
    for (std::uint32_t at = 0; at < slots; ++at) {
        const std::uint64_t slot = table->slot(at).get();
        if (slot != 0) more->enter(static_cast<std::uint32_t>(slot >> 32), static_cast<std::uint32_t>(slot));
    }
    current.store(more, std::memory_order_release);
    return true;
}

void MEM_PATH_TRIE::add_child(std::uint32_t parent, std::uint32_t number) {
    MEM_PATH_NODE& from = memory.region.node(parent);
    const std::uint64_t pc = memory.region.node(number).pc;
    if (from.first_child.get() == none) {
        from.first_child_pc = static_cast<std::uint32_t>(pc);
        from.first_child.publish(number);
    } else {
        current.load(std::memory_order_relaxed)->enter(hash_of(parent, pc), number);
        ++slots_taken;
    }
}

__attribute__((noinline, cold)) std::uint32_t MEM_PATH_TRIE::open_account(std::uint32_t node, PATH path) {
    const MEM_LOCK_SCOPE guard(lock);
    MEM_PATH_WORD<std::uint32_t>& account = memory.region.node(node).account;
    if (account.get() != 0) return account.get();
    MEM_PATH_WORD<std::uint32_t>& count = memory.region.header->accounts;
    const std::uint32_t number = count.get();
    if (!memory.reserve_account(number + kept_ready_beside(path))) return none;
    memory.region.late_counts(number).node = node;
    memory.region.counts(number).is_shared.set(false);  // a page that is read first takes two faults
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
    auto* more = static_cast<std::uint64_t*>(map_memory_to_fill(count * sizeof *slots));
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
