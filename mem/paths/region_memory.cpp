#include "mem/paths/region_memory.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/kept_stack.h"
#include "platform/mapped_memory.h"

namespace {

// More than all pieces together can take.
constexpr std::size_t shared_bytes = std::size_t{5} << 28;

template <class LAYOUT>
constexpr std::size_t all_pieces() {
    using PIECES = MEM_PATH_PIECES<LAYOUT>;
    return std::size_t{PIECES::start_of(LAYOUT::most_pieces)} * LAYOUT::element_bytes;
}
static_assert(mem_path_header_bytes + all_pieces<MEM_PATH_NODE_LAYOUT>() +
                  all_pieces<MEM_PATH_ACCOUNT_LAYOUT>() + all_pieces<MEM_PATH_LOAD_LAYOUT>() +
                  all_pieces<MEM_PATH_SITE_LAYOUT>() <=
              shared_bytes);

}  // namespace

// The head is none of them.
template <class ACT>
bool MEM_PATH_MEMORY::for_each_piece(ACT act) const {
    const auto act_on = [&act](const auto& pieces, const MEM_PATH_WORD<std::uint64_t>* offsets) {
        std::size_t at = 0;
        return std::all_of(std::begin(pieces), std::end(pieces), [&](const PIECE& piece) {
            const std::uint64_t offset = offsets[at++].get();
            return piece.memory == nullptr || act(piece, offset);
        });
    };
    return act_on(nodes, region.header->node_pieces) && act_on(accounts, region.header->account_pieces) &&
           act_on(loads, region.header->load_pieces) && act_on(sites, region.header->site_pieces);
}

MEM_PATH_MEMORY::~MEM_PATH_MEMORY() {
    if (head.memory != nullptr) {
        for_each_piece([](const PIECE& piece, std::size_t) {
            unmap_memory(piece.memory, piece.bytes);
            return true;
        });
        unmap_memory(head.memory, head.bytes);
    }
    if (descriptor >= 0) close_shared_memory(descriptor);
}

bool MEM_PATH_MEMORY::take_head() {
    if (place == MEM_PATH_PLACE::shared_memory) {
        descriptor = make_shared_memory("ktl_mem_paths", shared_bytes);
        void* memory = descriptor >= 0 ? map_shared_memory(descriptor, mem_path_header_bytes) : nullptr;
        latest = {static_cast<std::byte*>(memory), mem_path_header_bytes};
        if (memory == nullptr) place = MEM_PATH_PLACE::private_memory;
    }
    if (place == MEM_PATH_PLACE::private_memory)
        latest = {static_cast<std::byte*>(map_memory(mem_path_header_bytes)), mem_path_header_bytes};
    head = latest;
    region.header = reinterpret_cast<MEM_PATH_HEADER*>(head.memory);
    if (head.memory != nullptr) region.header->bytes.set(mem_path_header_bytes);
    return head.memory != nullptr;
}

MEM_PATH_MEMORY::PIECE MEM_PATH_MEMORY::take(std::size_t bytes) {
    void* memory = nullptr;
    if (place == MEM_PATH_PLACE::private_memory)
        memory = map_memory(bytes);
    else if (descriptor >= 0)
        memory = map_shared_memory(descriptor, bytes, region.header->bytes.get());
    else
        memory = map_shared_memory_behind(latest.memory, latest.bytes, bytes);
    if (memory == nullptr) return {};
    latest = {static_cast<std::byte*>(memory), bytes};
    return latest;
}

template <class LAYOUT, class PUBLISH>
bool MEM_PATH_MEMORY::reserve(PIECE (&pieces)[LAYOUT::most_pieces], MEM_PATH_WORD<std::uint64_t>* places,
                              std::uint32_t number, PUBLISH publish) {
    using LINE = MEM_PATH_PIECES<LAYOUT>;
    const std::uint32_t at = LINE::piece_of(number);
    if (at >= LAYOUT::most_pieces) return false;
    if (pieces[at].memory != nullptr) return true;
    const MEM_LOCK_SCOPE guard(lock);
    pieces[at] = take(LINE::bytes_of(at));
    if (pieces[at].memory == nullptr) return false;
    publish(at, pieces[at].memory);
    places[at].set(region.header->bytes.get());
    region.header->bytes.publish(region.header->bytes.get() + pieces[at].bytes);
    return true;
}

bool MEM_PATH_MEMORY::reserve_node(std::uint32_t number) {
    return reserve<MEM_PATH_NODE_LAYOUT>(
        nodes, region.header->node_pieces, number,
        [this](std::uint32_t at, const std::byte* memory) { region.set_node_piece(at, memory); });
}
bool MEM_PATH_MEMORY::reserve_account(std::uint32_t number) {
    return reserve<MEM_PATH_ACCOUNT_LAYOUT>(
        accounts, region.header->account_pieces, number,
        [this](std::uint32_t at, const std::byte* memory) { region.set_account_piece(at, memory); });
}
bool MEM_PATH_MEMORY::reserve_load(std::uint32_t number) {
    return reserve<MEM_PATH_LOAD_LAYOUT>(
        loads, region.header->load_pieces, number,
        [this](std::uint32_t at, const std::byte* memory) { region.set_load_piece(at, memory); });
}
bool MEM_PATH_MEMORY::reserve_site(std::uint32_t number) {
    return reserve<MEM_PATH_SITE_LAYOUT>(
        sites, region.header->site_pieces, number,
        [this](std::uint32_t at, const std::byte* memory) { region.set_site_piece(at, memory); });
}

bool MEM_PATH_MEMORY::create(std::uint32_t most_nodes) {
    if (!take_head() || !reserve_node(0) || !reserve_account(0) || !reserve_load(0) || !reserve_site(0))
        return false;
    MEM_PATH_HEADER& header = *region.header;
    header.version = mem_path_version;
    header.header_bytes = sizeof header;
    header.node_bytes = MEM_PATH_NODE_LAYOUT::element_bytes;
    header.account_bytes = MEM_PATH_ACCOUNT_LAYOUT::element_bytes;
    header.load_bytes = sizeof(MEM_PATH_LOAD);
    header.depth = KEPT_STACK::depth;
    header.most_nodes = most_nodes;
    seed();
    header.magic = mem_path_magic;
    return true;
}

// The first nodes with their accounts, and the first load, whose memory is zeroed.
void MEM_PATH_MEMORY::seed() {
    region.node(mem_path_deeper).pc = mem_path_pc_deeper;
    region.node(mem_path_unseen).pc = mem_path_pc_unseen;
    for (const std::uint32_t node : {mem_path_deeper, mem_path_unseen}) {
        region.node(node).account.set(node);
        region.late_counts(node).node = node;
    }
    region.header->nodes.publish(mem_path_first_node);
    region.header->accounts.publish(mem_path_first_node);
    region.header->loads.publish(1);
}

int MEM_PATH_MEMORY::take_descriptor() {
    return std::exchange(descriptor, -1);
}

int MEM_PATH_MEMORY::copy_shared() const {
    const int copy = make_shared_memory("ktl_mem_paths", shared_bytes);
    if (copy < 0) return -1;
    const auto write = [copy](const PIECE& piece, std::size_t offset) {
        return write_shared_memory(copy, offset, piece.memory, piece.bytes);
    };
    if (for_each_piece(write) && write(head, 0)) return copy;
    close_shared_memory(copy);
    return -1;
}

bool MEM_PATH_MEMORY::move_to(int copy) {
    if (descriptor >= 0) close_shared_memory(descriptor);
    descriptor = copy;
    const auto move = [copy](const PIECE& piece, std::size_t offset) {
        return replace_by_shared_memory(piece.memory, piece.bytes, copy, offset);
    };
    return for_each_piece(move) && move(head, 0);
}
