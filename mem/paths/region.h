// The layout of the region of the call paths: all that a reader needs to write their report, also a reader in
// another process, while the tracked program runs and after it has died, however it died.
//
// A path is a node of a trie: its parent is the path of its caller, and its program counter is the return
// address of its innermost frame. A path that blocks were charged to has an account, which holds its figures:
// most nodes lead to others and have none. Nodes, accounts, loads of modules and call sites are known by
// their numbers. Each of these sequences lies in pieces of doubling size, so that the memory grows with its
// use. Words that change are relaxed atomics: a reader at the side sees figures of an event, or of the one
// before it.
//
// Includes nothing of the library.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>

// A word that any thread and process may read while another writes; it orders nothing.
template <class T>
class MEM_PATH_WORD {
  public:
    T get() const { return value.load(std::memory_order_relaxed); }
    void set(T next) { value.store(next, std::memory_order_relaxed); }
    // Of a word that one thread at a time writes.
    void add(T more) { set(static_cast<T>(get() + more)); }
    // The following two order what was written before against what is read after.
    T get_published() const { return value.load(std::memory_order_acquire); }
    void publish(T next) { value.store(next, std::memory_order_release); }
    std::atomic<T>& word() { return value; }

  private:
    std::atomic<T> value{};
};

inline constexpr std::uint64_t mem_path_magic = 0x73687461'706c746bU;
inline constexpr std::uint32_t mem_path_version = 2;

// Numbers of nodes that are always there, and of their accounts.
inline constexpr std::uint32_t mem_path_root = 0;    // the parent of outermost frames
inline constexpr std::uint32_t mem_path_deeper = 1;  // stands for all frames beyond the depth
inline constexpr std::uint32_t mem_path_unseen = 2;  // blocks without an entry in the tables
inline constexpr std::uint32_t mem_path_first_node = 3;
// The program counters of nodes that stand for no frame: they are no addresses of code.
inline constexpr std::uint64_t mem_path_pc_deeper = 1;
inline constexpr std::uint64_t mem_path_pc_unseen = 2;
// A child with this program counter, or one up to most_shares above it, holds a part of its parent's figures:
// threads that meet at a node count apart.
inline constexpr std::uint64_t mem_path_pc_share = 16;
inline constexpr std::uint64_t mem_path_most_shares = 64;
inline bool mem_path_is_share(std::uint64_t pc) {
    return pc - mem_path_pc_share < mem_path_most_shares;
}

// What every event of an account touches. Bytes are those that the allocator gave, unless the name says
// requested.
struct alignas(64) MEM_PATH_COUNTS {
    MEM_PATH_WORD<std::int64_t> bytes;  // charged here and not yet freed
    MEM_PATH_WORD<std::int64_t> blocks;
    MEM_PATH_WORD<std::int64_t> cumulative_bytes;  // ever charged here
    MEM_PATH_WORD<std::int64_t> cumulative_blocks;
    MEM_PATH_WORD<std::int64_t> cumulative_requested_bytes;
    MEM_PATH_WORD<std::int64_t> requested_bytes;  // of the blocks that are charged here and not yet freed
    // peak_bytes of the header when the account changed last. While it is behind, the account has not changed
    // since the peak, and its current figures are those of the peak.
    MEM_PATH_WORD<std::int64_t> peak_mark;
    std::byte lock;                     // the writing process's own
    std::uint8_t waits;                 // threads that found it locked
    MEM_PATH_WORD<bool> is_shared;      // they met too often: it is counted in shares from now on
    MEM_PATH_WORD<std::uint32_t> site;  // number of the call site that is charged, plus 1; 0: not known yet
};

// The rest of an account: its late copy, and what seldom changes.
struct MEM_PATH_LATE_COUNTS {
    MEM_PATH_WORD<std::int64_t> temporary_blocks;  // freed by their thread before its next allocation
    MEM_PATH_WORD<std::int64_t> peak_bytes;        // at the exact peak that peak_mark tells
    MEM_PATH_WORD<std::int64_t> peak_blocks;
    std::uint32_t node;
};

// Half a cache line: a node lies beside its first child more often than not.
struct MEM_PATH_NODE {
    std::uint64_t pc;
    std::uint32_t parent;
    std::uint16_t load;                       // of the module that pc lies in; 0: none
    MEM_PATH_WORD<std::uint16_t> generation;  // the writing process's own, as are the next two
    MEM_PATH_WORD<std::uint32_t> first_child;
    std::uint32_t first_child_pc;          // the lowest bits of it
    MEM_PATH_WORD<std::uint32_t> account;  // 0: none
};

// A module from one loading to its unloading. Load 0 is none.
struct MEM_PATH_LOAD {
    std::uint64_t begin;  // first address, and one past the last
    std::uint64_t end;
    std::uint64_t bias;  // address in memory less address in the file
    std::uint8_t build_id_size;
    std::uint8_t build_id[39];
    char path[448];  // zero-terminated; empty when it does not fit, or when there is no file
};

// Where the elements of a sequence lie: piece 0 holds the first first_size, piece k as many as all before it.
template <class LAYOUT>
struct MEM_PATH_PIECES {
    static constexpr std::uint32_t piece_of(std::uint32_t index) {
        return static_cast<std::uint32_t>(std::bit_width(index / LAYOUT::first_size));
    }
    static constexpr std::uint32_t start_of(std::uint32_t piece) {
        return piece == 0 ? 0 : LAYOUT::first_size << (piece - 1);
    }
    static constexpr std::uint32_t size_of(std::uint32_t piece) {
        return std::max(start_of(piece), LAYOUT::first_size);
    }
    static constexpr std::size_t bytes_of(std::uint32_t piece) {
        return std::size_t{size_of(piece)} * LAYOUT::element_bytes;
    }
};

struct MEM_PATH_NODE_LAYOUT {
    static constexpr std::uint32_t first_size = 4096;
    static constexpr std::uint32_t most_pieces = 12;
    static constexpr std::size_t element_bytes = sizeof(MEM_PATH_NODE);
};
// The counts of a piece come first, then the late ones.
struct MEM_PATH_ACCOUNT_LAYOUT {
    static constexpr std::uint32_t first_size = 4096;
    static constexpr std::uint32_t most_pieces = 12;
    static constexpr std::size_t element_bytes = sizeof(MEM_PATH_COUNTS) + sizeof(MEM_PATH_LATE_COUNTS);
};
struct MEM_PATH_LOAD_LAYOUT {
    static constexpr std::uint32_t first_size = 64;
    static constexpr std::uint32_t most_pieces = 8;
    static constexpr std::size_t element_bytes = sizeof(MEM_PATH_LOAD);
};
// A site is the program counter of its record, 0 for the OTHER record.
struct MEM_PATH_SITE_LAYOUT {
    static constexpr std::uint32_t first_size = 4096;
    static constexpr std::uint32_t most_pieces = 10;
    static constexpr std::size_t element_bytes = sizeof(std::uint64_t);
};
struct MEM_PATH_HEADER {
    std::uint64_t magic;
    std::uint32_t version;
    std::uint32_t header_bytes;
    std::uint32_t node_bytes;
    std::uint32_t account_bytes;
    std::uint32_t load_bytes;
    std::uint32_t depth;                 // frames kept of a stack
    std::uint32_t most_nodes;            // limit
    MEM_PATH_WORD<std::uint32_t> nodes;  // numbers given; what they number is complete
    MEM_PATH_WORD<std::uint32_t> accounts;
    MEM_PATH_WORD<std::uint32_t> loads;
    MEM_PATH_WORD<std::uint32_t> sites;
    // Where the pieces lie in the region's own file, if it has one, and how much of that is in use.
    MEM_PATH_WORD<std::uint64_t> node_pieces[MEM_PATH_NODE_LAYOUT::most_pieces];
    MEM_PATH_WORD<std::uint64_t> account_pieces[MEM_PATH_ACCOUNT_LAYOUT::most_pieces];
    MEM_PATH_WORD<std::uint64_t> load_pieces[MEM_PATH_LOAD_LAYOUT::most_pieces];
    MEM_PATH_WORD<std::uint64_t> site_pieces[MEM_PATH_SITE_LAYOUT::most_pieces];
    MEM_PATH_WORD<std::uint64_t> bytes;
    MEM_PATH_WORD<std::uint64_t> shortened_events;  // their path was cut, since no node could be made
    // The exact peak: the highest that the sum of all nodes' bytes has been.
    alignas(64) MEM_PATH_WORD<std::int64_t> peak_bytes;
    MEM_PATH_WORD<std::uint64_t> peak_event;  // its number
    MEM_PATH_WORD<std::uint64_t> peak_ms;     // since the start of the process
};

inline constexpr std::size_t mem_path_header_bytes = 4096;

static_assert(sizeof(MEM_PATH_HEADER) <= mem_path_header_bytes && sizeof(MEM_PATH_COUNTS) == 64 &&
              sizeof(MEM_PATH_LATE_COUNTS) == 32 && sizeof(MEM_PATH_NODE) == 32 &&
              sizeof(MEM_PATH_LOAD) == 512);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

// The region as it lies in this process's memory.
class MEM_PATH_REGION {
  public:
    using NODES = MEM_PATH_PIECES<MEM_PATH_NODE_LAYOUT>;
    using ACCOUNTS = MEM_PATH_PIECES<MEM_PATH_ACCOUNT_LAYOUT>;
    using LOADS = MEM_PATH_PIECES<MEM_PATH_LOAD_LAYOUT>;
    using SITES = MEM_PATH_PIECES<MEM_PATH_SITE_LAYOUT>;

    MEM_PATH_HEADER* header = nullptr;

    void set_node_piece(std::uint32_t piece, const std::byte* memory) {
        nodes_from[piece] = from<MEM_PATH_NODE>(memory, NODES::start_of(piece));
    }
    void set_account_piece(std::uint32_t piece, const std::byte* memory) {
        counts_from[piece] = from<MEM_PATH_COUNTS>(memory, ACCOUNTS::start_of(piece));
        const std::byte* behind = memory + std::size_t{ACCOUNTS::size_of(piece)} * sizeof(MEM_PATH_COUNTS);
        late_counts_from[piece] = from<MEM_PATH_LATE_COUNTS>(behind, ACCOUNTS::start_of(piece));
    }
    void set_load_piece(std::uint32_t piece, const std::byte* memory) {
        loads_from[piece] = from<MEM_PATH_LOAD>(memory, LOADS::start_of(piece));
    }
    void set_site_piece(std::uint32_t piece, const std::byte* memory) {
        sites_from[piece] = from<MEM_PATH_WORD<std::uint64_t>>(memory, SITES::start_of(piece));
    }

    // How many of them there is memory for.
    std::uint32_t room_for_nodes() const { return room<NODES>(nodes_from); }
    std::uint32_t room_for_accounts() const { return room<ACCOUNTS>(counts_from); }
    std::uint32_t room_for_loads() const { return room<LOADS>(loads_from); }
    std::uint32_t room_for_sites() const { return room<SITES>(sites_from); }

    // Of an account.
    MEM_PATH_COUNTS& counts(std::uint32_t number) const {
        return at<MEM_PATH_COUNTS>(counts_from[ACCOUNTS::piece_of(number)], number);
    }
    MEM_PATH_LATE_COUNTS& late_counts(std::uint32_t number) const {
        return at<MEM_PATH_LATE_COUNTS>(late_counts_from[ACCOUNTS::piece_of(number)], number);
    }
    MEM_PATH_NODE& node(std::uint32_t number) const {
        return at<MEM_PATH_NODE>(nodes_from[NODES::piece_of(number)], number);
    }
    MEM_PATH_LOAD& load(std::uint32_t number) const {
        return at<MEM_PATH_LOAD>(loads_from[LOADS::piece_of(number)], number);
    }
    // Written again by each path that is charged there, while others read it.
    MEM_PATH_WORD<std::uint64_t>& site(std::uint32_t number) const {
        return at<MEM_PATH_WORD<std::uint64_t>>(sites_from[SITES::piece_of(number)], number);
    }

  private:
    template <class PIECES, std::size_t count>
    static std::uint32_t room(const std::uintptr_t (&pieces)[count]) {
        const auto missing = std::find(std::begin(pieces), std::end(pieces), std::uintptr_t{0});
        return PIECES::start_of(static_cast<std::uint32_t>(missing - std::begin(pieces)));
    }
    // Where element 0 would lie if all elements lay in a row with those of the piece.
    template <class T>
    static std::uintptr_t from(const std::byte* memory, std::uint32_t first) {
        return reinterpret_cast<std::uintptr_t>(memory) - std::uintptr_t{first} * sizeof(T);
    }
    template <class T>
    static T& at(std::uintptr_t start, std::uint32_t number) {
        return *reinterpret_cast<T*>(start + std::uintptr_t{number} * sizeof(T));
    }

    std::uintptr_t counts_from[MEM_PATH_ACCOUNT_LAYOUT::most_pieces] = {};
    std::uintptr_t late_counts_from[MEM_PATH_ACCOUNT_LAYOUT::most_pieces] = {};
    std::uintptr_t nodes_from[MEM_PATH_NODE_LAYOUT::most_pieces] = {};
    std::uintptr_t loads_from[MEM_PATH_LOAD_LAYOUT::most_pieces] = {};
    std::uintptr_t sites_from[MEM_PATH_SITE_LAYOUT::most_pieces] = {};
};
