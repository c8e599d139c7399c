#include "mem/paths/region_report.h"

#include <algorithm>
#include <charconv>
#include <concepts>
#include <cstring>
#include <memory>
#include <new>
#include <ostream>
#include <string_view>
#include <utility>
#include <vector>

#include "mem/columns/report_columns.h"

namespace {

// Of the text, which readers ask for; the layout of the region has another.
constexpr std::uint32_t report_version = 1;

constexpr std::int64_t MEM_PATH_ROW::*all_figures[] = {&MEM_PATH_ROW::bytes,
                                                       &MEM_PATH_ROW::blocks,
                                                       &MEM_PATH_ROW::requested_bytes,
                                                       &MEM_PATH_ROW::peak_bytes,
                                                       &MEM_PATH_ROW::peak_blocks,
                                                       &MEM_PATH_ROW::cumulative_bytes,
                                                       &MEM_PATH_ROW::cumulative_blocks,
                                                       &MEM_PATH_ROW::cumulative_requested_bytes,
                                                       &MEM_PATH_ROW::temporary_blocks};
constexpr auto figure_columns = mem_report::call_paths.columns.subspan(mem_column::columns_before_figures);
static_assert(std::size(all_figures) == figure_columns.size());

// Parents come before children, also in a region that something else has written into.
std::uint32_t parent_of(const MEM_PATH_REGION& region, std::uint32_t number) {
    const std::uint32_t parent = region.node(number).parent;
    return parent < number ? parent : mem_path_root;
}

// Around the end of the numbers, too: the figures are what another program left in its memory.
std::int64_t sum_of(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

void add(MEM_PATH_ROW& sum, const MEM_PATH_ROW& row) {
    for (const auto figure : all_figures) sum.*figure = sum_of(sum.*figure, row.*figure);
}

bool is_zero(const MEM_PATH_ROW& row) {
    return std::ranges::all_of(all_figures, [&](auto figure) { return row.*figure == 0; });
}

MEM_PATH_ROW row_of(const MEM_PATH_REGION& region, std::uint32_t account, std::int64_t peak) {
    const MEM_PATH_COUNTS& counts = region.counts(account);
    const MEM_PATH_LATE_COUNTS& late = region.late_counts(account);
    MEM_PATH_ROW row;
    row.site = counts.site.get();
    row.bytes = counts.bytes.get();
    row.blocks = counts.blocks.get();
    row.requested_bytes = counts.requested_bytes.get();
    // An account that has not changed since the peak still has its figures.
    const bool changed_since = counts.peak_mark.get() == peak;
    row.peak_bytes = changed_since ? late.peak_bytes.get() : row.bytes;
    row.peak_blocks = changed_since ? late.peak_blocks.get() : row.blocks;
    row.cumulative_bytes = counts.cumulative_bytes.get();
    row.cumulative_blocks = counts.cumulative_blocks.get();
    row.cumulative_requested_bytes = counts.cumulative_requested_bytes.get();
    row.temporary_blocks = late.temporary_blocks.get();
    return row;
}

// A report has a row for each of up to millions of nodes: its digits go straight into the block that is
// written.
class TEXT {
  public:
    explicit TEXT(std::ostream& stream) : out(stream) {}
    ~TEXT() { flush(); }
    TEXT(const TEXT&) = delete;
    TEXT& operator=(const TEXT&) = delete;

    TEXT& text(std::string_view more) {
        while (more.size() > block_bytes - used) more.remove_prefix(put(more.substr(0, block_bytes - used)));
        put(more);
        return *this;
    }
    TEXT& titles(std::span<const MEM_COLUMN> columns) {
        for (const MEM_COLUMN& column : columns)
            text(&column == columns.data() ? "" : "\t").text(column.title);
        return *this;
    }
    // In a column, whose bounds are tabs and line ends.
    TEXT& column(std::string_view more) {
        text("\t");
        while (!more.empty()) more.remove_prefix(put_without_bounds(more.substr(0, block_bytes - used)));
        return *this;
    }
    TEXT& column(std::integral auto value) { return text("\t").number(value); }
    TEXT& number(std::integral auto value) {
        constexpr std::uint64_t most_of_one_digit = 9;
        if (static_cast<std::uint64_t>(value) > most_of_one_digit) return digits(value);
        block[used] = static_cast<char>('0' + value);
        take_over(1);
        return *this;
    }
    TEXT& address(std::uint64_t value) { return text("\t0x").digits(value, 16); }
    void end_row() { text("\n"); }

  private:
    static constexpr std::size_t block_bytes = std::size_t{1} << 16;
    static constexpr std::size_t most_digits = 24;

    // The block always has room for a character.
    void take_over(std::size_t more) {
        used += more;
        if (used == block_bytes) flush();
    }
    TEXT& digits(auto value, auto... base) {
        if (most_digits > block_bytes - used) flush();
        char* const begin = block.get() + used;
        take_over(
            static_cast<std::size_t>(std::to_chars(begin, begin + most_digits, value, base...).ptr - begin));
        return *this;
    }
    std::size_t put(std::string_view more) {
        std::memcpy(block.get() + used, more.data(), more.size());
        take_over(more.size());
        return more.size();
    }
    std::size_t put_without_bounds(std::string_view more) {
        std::ranges::transform(more, block.get() + used, [](char one) {
            return one == '\t' || one == '\n' || one == '\r' ? ' ' : one;
        });
        take_over(more.size());
        return more.size();
    }
    void flush() {
        out.write(block.get(), static_cast<std::streamsize>(used));
        used = 0;
    }

    std::ostream& out;
    std::unique_ptr<char[]> block = std::make_unique_for_overwrite<char[]>(block_bytes);
    std::size_t used = 0;
};

void write_head(TEXT& out, const MEM_PATH_REGION& region, const MEM_PATH_SNAPSHOT& snapshot,
                std::uint32_t rows) {
    const auto line = [&](const char* key, auto value) { out.text(key).column(value).end_row(); };
    const MEM_PATH_ROW& sums = snapshot.sums;
    out.text(mem_report::call_paths.title).text("\n\nKey\tValue\n");
    line("Version", report_version);
    const std::int64_t freed = sum_of(sums.cumulative_blocks, sum_of(~sums.blocks, 1));
    line("Events", sum_of(sums.cumulative_blocks, freed));
    line("Depth", region.header->depth);
    line("Nodes", rows);
    line("Shortened events", snapshot.shortened_events);
    line("Peak event", snapshot.peak_event);
    line("Peak milliseconds", snapshot.peak_ms);
    for (std::size_t i = 0; i < std::size(all_figures); ++i)
        line(figure_columns[i].title, sums.*all_figures[i]);
    out.end_row();
}

// Which nodes and frames are written, and their numbers in the report; 0 for none.
class NUMBERS {
  public:
    NUMBERS(const MEM_PATH_REGION& region, const MEM_PATH_SNAPSHOT& snapshot)
        : of_node(snapshot.nodes), frame_of_node(snapshot.nodes) {
        for (const MEM_PATH_ROW& row : snapshot.rows) of_node[row.node] = 1;
        for (std::uint32_t at = snapshot.nodes; at-- > 1;)
            if (of_node[at] != 0) of_node[parent_of(region, at)] = 1;
        if (!of_node.empty()) of_node[mem_path_root] = 0;
        for (std::uint32_t at = 1; at < snapshot.nodes; ++at) {
            if (of_node[at] == 0) continue;
            of_node[at] = ++node_count;
            if (at != mem_path_deeper) frame_of_node[at] = number_frame(region.node(at));
        }
    }

    std::vector<MEM_PATH_FRAME> frames;  // by number, less 1
    std::vector<std::uint32_t> of_node;
    std::vector<std::uint32_t> frame_of_node;
    std::uint32_t node_count = 0;

  private:
    static std::size_t hash_of(const MEM_PATH_FRAME& frame) {
        return (frame.pc ^ std::uint64_t{frame.load} << 48) * 0x9e3779b97f4a7c15U >> 32;
    }
    // Where the number of the frame is, or goes.
    std::uint32_t& slot_of(const MEM_PATH_FRAME& frame) {
        std::size_t at = hash_of(frame) & (slots.size() - 1);
        while (slots[at] != 0 && frames[slots[at] - 1] != frame) at = (at + 1) & (slots.size() - 1);
        return slots[at];
    }
    std::uint32_t number_frame(const MEM_PATH_NODE& node) {
        const MEM_PATH_FRAME frame{node.pc, node.load};
        std::uint32_t& slot = slot_of(frame);
        if (slot != 0) return slot;
        frames.push_back(frame);
        slot = static_cast<std::uint32_t>(frames.size());
        if (2 * frames.size() > slots.size()) add_slots();
        return static_cast<std::uint32_t>(frames.size());
    }
    void add_slots() {
        slots.assign(2 * slots.size(), 0);
        for (std::uint32_t number = 1; number <= frames.size(); ++number)
            slot_of(frames[number - 1]) = number;
    }

    static constexpr std::size_t first_slots = 1024;
    std::vector<std::uint32_t> slots = std::vector<std::uint32_t>(first_slots);  // a power of two of them
};

void write_level(TEXT& out, std::size_t number, std::size_t level, std::uint64_t pc,
                 const MEM_PATH_LEVEL& text) {
    out.number(number).column(level).address(pc).column(text.is_filtered ? 1 : 0).column(text.module);
    out.column(text.file).column(text.line).column(text.function).end_row();
}

void write_frames(TEXT& out, const NUMBERS& numbers, const MEM_PATH_NAMER& name) {
    constexpr MEM_PATH_LEVEL unseen{{}, {}, "(allocation not seen)"};
    out.titles(mem_column::of_frames).end_row();
    std::size_t count = 0;  // of frames that are written
    const auto take = [&](std::size_t i, std::size_t level, const MEM_PATH_LEVEL& text) {
        const std::uint64_t pc = numbers.frames[i].pc;
        count = i + 1;
        if (pc != mem_path_pc_unseen)
            write_level(out, count, level, pc, text);
        else if (level == 0)
            write_level(out, count, level, 0, unseen);
    };
    try {
        name(numbers.frames, take);
    } catch (const std::bad_alloc&) {
        while (count < numbers.frames.size()) take(count, 0, {});  // addresses are left, and all figures
    }
    out.end_row();
}

void write_site(TEXT& out, const MEM_PATH_REGION& region, const MEM_PATH_ROW& row) {
    const bool is_unseen = row.node == mem_path_unseen;
    const bool has_site = row.site != 0 && row.site <= region.room_for_sites() && !is_zero(row);
    const std::uint64_t pc = has_site && !is_unseen ? region.site(row.site - 1).get() : 0;
    if (!is_unseen && !has_site)
        out.text("\t-");
    else if (pc == 0)
        out.text("\tOTHER");
    else
        out.address(pc);
}

void write_nodes(TEXT& out, const MEM_PATH_REGION& region, const MEM_PATH_SNAPSHOT& snapshot,
                 const NUMBERS& numbers) {
    out.titles(mem_report::call_paths.columns).end_row();
    auto next = snapshot.rows.begin();
    for (std::uint32_t at = 1; at < snapshot.nodes; ++at) {
        if (numbers.of_node[at] == 0) continue;
        out.number(numbers.of_node[at]).column(numbers.of_node[parent_of(region, at)]);
        out.column(numbers.frame_of_node[at]);
        if (next == snapshot.rows.end() || next->node != at) {
            out.text("\t-\t0\t0\t0\t0\t0\t0\t0\t0\t0\n");
            continue;
        }
        write_site(out, region, *next);
        for (const auto figure : all_figures) out.column((*next).*figure);
        out.end_row();
        ++next;
    }
    out.end_row();
}

}  // namespace

MEM_PATH_SNAPSHOT mem_copy_call_paths(const MEM_PATH_REGION& region) {
    MEM_PATH_SNAPSHOT copy;
    const MEM_PATH_HEADER& header = *region.header;
    copy.nodes = std::min(header.nodes.get_published(), region.room_for_nodes());
    copy.shortened_events = header.shortened_events.get();
    copy.peak_event = header.peak_event.get();
    copy.peak_ms = header.peak_ms.get();
    const std::uint32_t accounts = std::min(header.accounts.get_published(), region.room_for_accounts());
    const std::int64_t peak = header.peak_bytes.get();
    std::vector<MEM_PATH_ROW> shares;
    copy.rows.reserve(accounts);
    for (std::uint32_t number = 1; number < copy.nodes; ++number) {
        const MEM_PATH_NODE& node = region.node(number);
        const std::uint32_t account = node.account.get_published();
        if (account == 0 || account >= accounts) continue;
        MEM_PATH_ROW row = row_of(region, account, peak);
        if (is_zero(row)) continue;
        add(copy.sums, row);
        const bool is_share = mem_path_is_share(node.pc);
        row.node = is_share ? parent_of(region, number) : number;
        (is_share ? shares : copy.rows).push_back(row);
    }
    for (const MEM_PATH_ROW& share : shares) {
        const auto whole = std::ranges::lower_bound(copy.rows, share.node, {}, &MEM_PATH_ROW::node);
        if (whole != copy.rows.end() && whole->node == share.node) {
            add(*whole, share);
        } else {
            copy.rows.insert(whole, share);
        }
    }
    return copy;
}

void mem_write_call_paths(std::ostream& out, const MEM_PATH_REGION& region, const MEM_PATH_SNAPSHOT& snapshot,
                          const MEM_PATH_NAMER& name) {
    const NUMBERS numbers(region, snapshot);
    TEXT text(out);
    write_head(text, region, snapshot, numbers.node_count);
    write_frames(text, numbers, name);
    write_nodes(text, region, snapshot, numbers);
}
