#include "mem/paths/region_view.h"

#include <utility>

#include "platform/mapped_memory.h"

namespace {

const MEM_PATH_HEADER& header_of(const std::byte* memory) {
    return *reinterpret_cast<const MEM_PATH_HEADER*>(memory);
}

bool is_known(const MEM_PATH_HEADER& header) {
    return header.magic == mem_path_magic && header.version == mem_path_version &&
           header.header_bytes == sizeof header && header.node_bytes == MEM_PATH_NODE_LAYOUT::element_bytes &&
           header.account_bytes == MEM_PATH_ACCOUNT_LAYOUT::element_bytes &&
           header.load_bytes == sizeof(MEM_PATH_LOAD);
}

// How much of it is in use; 0 for something else.
std::size_t used_bytes(int descriptor) {
    const auto* head =
        static_cast<const std::byte*>(map_shared_memory_to_read(descriptor, mem_path_header_bytes));
    if (head == nullptr) return 0;
    const std::size_t used = is_known(header_of(head)) ? header_of(head).bytes.get_published() : 0;
    unmap_memory(const_cast<std::byte*>(head), mem_path_header_bytes);
    return used;
}

// Calls set(number, memory) for each piece that the mapped part holds as a whole.
template <class LAYOUT, class SET>
void for_each_piece(const MEM_PATH_WORD<std::uint64_t>* places, const std::byte* memory, std::size_t bytes,
                    SET set) {
    for (std::uint32_t at = 0; at < LAYOUT::most_pieces; ++at) {
        const std::uint64_t place = places[at].get();
        const std::size_t size = MEM_PATH_PIECES<LAYOUT>::bytes_of(at);
        const bool is_aligned = place % alignof(MEM_PATH_COUNTS) == 0;
        if (place != 0 && is_aligned && place <= bytes && size <= bytes - place) set(at, memory + place);
    }
}

}  // namespace

MEM_PATH_VIEW::~MEM_PATH_VIEW() {
    unmap();
}

void MEM_PATH_VIEW::unmap() {
    if (memory != nullptr) unmap_memory(const_cast<std::byte*>(std::exchange(memory, nullptr)), bytes);
}

bool MEM_PATH_VIEW::map(int descriptor) {
    const std::size_t used = used_bytes(descriptor);
    if (used < mem_path_header_bytes) return false;
    if (memory != nullptr && used == bytes) return true;
    const auto* mapped = static_cast<const std::byte*>(map_shared_memory_to_read(descriptor, used));
    if (mapped == nullptr) return false;
    unmap();
    memory = mapped;
    bytes = used;
    mapped_region = {};
    mapped_region.header = reinterpret_cast<MEM_PATH_HEADER*>(const_cast<std::byte*>(memory));
    const MEM_PATH_HEADER& header = *mapped_region.header;
    for_each_piece<MEM_PATH_NODE_LAYOUT>(header.node_pieces, memory, bytes, [this](auto at, auto* piece) {
        mapped_region.set_node_piece(at, piece);
    });
    for_each_piece<MEM_PATH_ACCOUNT_LAYOUT>(
        header.account_pieces, memory, bytes,
        [this](auto at, auto* piece) { mapped_region.set_account_piece(at, piece); });
    for_each_piece<MEM_PATH_LOAD_LAYOUT>(header.load_pieces, memory, bytes, [this](auto at, auto* piece) {
        mapped_region.set_load_piece(at, piece);
    });
    for_each_piece<MEM_PATH_SITE_LAYOUT>(header.site_pieces, memory, bytes, [this](auto at, auto* piece) {
        mapped_region.set_site_piece(at, piece);
    });
    return true;
}
