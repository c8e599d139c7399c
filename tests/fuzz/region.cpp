#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "mem/paths/region_memory.h"
#include "mem/paths/region_report.h"
#include "mem/paths/region_view.h"
#include "mem/paths/trie.h"
#include "tests/fuzz/targets.h"
#include "tools/memrun/control/path_figures.h"
#include "tools/memrun/control/path_namer.h"

namespace fuzz {

namespace {

constexpr std::uint32_t paths_made = 12;

void charge(MEM_PATH_MEMORY& memory, MEM_PATH_TRIE& trie, std::uint32_t node, std::uint32_t site) {
    const std::uint32_t account = trie.account_of(node, MEM_PATH_TRIE::PATH::whole);
    memory.region.counts(account).site.set(site + 1);
    memory.region.counts(account).bytes.set(64 * node);
    memory.region.counts(account).blocks.set(node);
    memory.region.counts(account).cumulative_bytes.set(100 * node);
    memory.region.counts(account).cumulative_blocks.set(2 * node);
}

// The bytes of a region with some paths, a share and a site.
std::vector<std::uint8_t> make_region() {
    MEM_PATH_MEMORY memory(MEM_PATH_PLACE::shared_memory);
    MEM_PATH_TRIE trie(memory);
    require(memory.create(1024) && trie.create() && memory.reserve_site(0) && memory.reserve_load(1),
            "there is memory");
    memory.region.site(0).set(0x401000);
    memory.region.header->sites.publish(1);
    memory.region.header->loads.publish(2);
    std::strcpy(memory.region.load(1).path, "/bin/app");
    std::uint32_t node = mem_path_root;
    for (std::uint32_t i = 0; i < paths_made; ++i) {
        const bool is_last = i + 1 == paths_made;
        MEM_PATH_TRIE::INSERTION paths(trie, 0, MEM_PATH_TRIE::PATH::whole);
        node = paths.child(node, is_last ? mem_path_pc_share : 0x401000 + 16 * i, is_last ? 0 : 1);
    }
    for (std::uint32_t i = 0; i < 4; ++i) charge(memory, trie, node - i, 0);
    const int descriptor = memory.take_descriptor();
    std::vector<std::uint8_t> bytes(memory.region.header->bytes.get());
    require(pread(descriptor, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
            "the region is read");
    close(descriptor);
    return bytes;
}

constexpr std::uint32_t parts = 6, stretch = 1024;

// The parts that make a region what it is: the head, and the first elements of each of its sequences.
std::size_t place_in(const std::vector<std::uint8_t>& region, std::uint32_t number) {
    const auto& header = *reinterpret_cast<const MEM_PATH_HEADER*>(region.data());
    const std::size_t starts[parts] = {0,
                                       0,
                                       header.node_pieces[0].get(),
                                       header.account_pieces[0].get(),
                                       header.load_pieces[0].get(),
                                       header.site_pieces[0].get()};
    return starts[(number >> 16) % parts] + number % stretch;
}

// The bytes are changes to a region that makes sense: a place and eight bytes that are written there.
constexpr std::size_t change_size = 12;

void take(Bytes bytes) {
    static const std::vector<std::uint8_t> whole = make_region();
    std::vector<std::uint8_t> changed = whole;
    for (; bytes.size() >= change_size; bytes = bytes.subspan(change_size)) {
        std::uint32_t number = 0;
        std::memcpy(&number, bytes.data(), sizeof number);
        const std::size_t place = place_in(whole, number);
        const std::size_t size = std::min<std::size_t>(8, changed.size() - place);
        std::memcpy(changed.data() + place, bytes.data() + sizeof number, size);
    }
    const MemoryFile file(changed);
    memrun::control::Process process(1, "app");
    process.call_paths = dup(file.descriptor());
    memrun::control::Held held;
    memrun::control::read_held(process, 3, held);
    MEM_PATH_VIEW view;
    if (!view.map(file.descriptor())) return;
    std::ostringstream out;
    mem_write_call_paths(out, view.region(), mem_copy_call_paths(view.region()),
                         [&](const auto& frames, const auto& take) {
                             memrun::control::name_frames(view.region(), frames, take);
                         });
}

// Every word of these parts with all its bits set: counts that are too large, parents, loads, accounts and
// sites that there are none of, figures at the end of the numbers.
std::vector<std::string> seeds() {
    std::vector<std::string> all = {""};
    for (std::uint32_t part = 1; part < parts; ++part)
        for (std::uint32_t word = 0; word < stretch; word += sizeof word) {
            const std::uint32_t number = part << 16 | word;
            std::string change(change_size, '\xff');
            std::memcpy(change.data(), &number, sizeof number);
            all.push_back(change);
        }
    return all;
}

}  // namespace

const Target region = {"region", take, seeds};

}  // namespace fuzz
