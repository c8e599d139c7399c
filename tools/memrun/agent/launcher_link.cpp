#include "tools/memrun/agent/launcher_link.h"

#include <sys/mman.h>

#include <cstdio>

#include "mem/paths/shared_region.h"
#include "platform/mapped_memory.h"
#include "platform/symbol_services.h"
#include "platform/symbols/asked_names.h"
#include "tools/memrun/agent/control_page.h"
#include "tools/memrun/agent/note.h"
#include "tools/memrun/contract.h"
#include "tools/memrun/link/client.h"

namespace memrun::agent {

namespace {

symbols::NAME_CHANNEL* channel = nullptr;
const symbols::NAME_TABLE* table = nullptr;
bool are_names_served = false;

void share_names(link::Greeting& mine) {
    if (channel != nullptr) munmap(channel, sizeof *channel);  // the parent's
    const int fd = make_shared_memory("ktl_mem_names", sizeof *channel);
    channel = static_cast<symbols::NAME_CHANNEL*>(map_shared_memory(fd, sizeof *channel));
    if (channel != nullptr) channel->mark = symbols::name_channel_mark;
    mine.add(link::ShareKind::names, fd);
}

void take_shares(const link::Greeting& answer) {
    auto* bell = static_cast<symbols::NAME_BELL*>(
        map_shared_memory(answer.find(link::ShareKind::names_bell), sizeof(symbols::NAME_BELL)));
    // A forked child has its parent's.
    if (table == nullptr)
        table = static_cast<const symbols::NAME_TABLE*>(map_shared_memory_to_read(
            answer.find(link::ShareKind::known_names), sizeof(symbols::NAME_TABLE)));
    are_names_served = channel != nullptr && bell != nullptr;
    if (are_names_served) symbols::use_name_channel(channel, bell, table);
}

}  // namespace

void join_launcher(const Orders& orders) {
    char folder[PATH_MAX + NAME_MAX];
    std::snprintf(folder, sizeof folder, "%s/%s", orders.dir, notes_folder);
    link::Greeting mine;
    mine.pid = orders.owner;
    std::snprintf(mine.word, sizeof mine.word, "%s", orders.word);
    share_names(mine);
    if (const int paths = mem_take_call_path_region(); paths >= 0)
        mine.add(link::ShareKind::call_paths, paths);
    if (const int page = share_control_page(orders); page >= 0) mine.add(link::ShareKind::control, page);
    are_names_served = false;
    if (!link::greet_launcher(folder, mine, take_shares)) append_note(orders, "alone\n");
    if (!are_names_served) symbols::open_files();
}

void note_silence(const Orders& orders) {
    if (channel != nullptr && channel->is_given_up.load() != 0) append_note(orders, "silence\n");
}

}  // namespace memrun::agent
