// The tracker at its edges: scripts, and what they must print. Blocks of 64, 1024 and 16 bytes are size
// classes of their own.
#include "tests/process/child_process.h"

const std::string every_event = "VELDRIN_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD=1";
const std::string too_much = "1152921504606846976";
const std::string eight =
    "malloc - 16 malloc - 16 malloc - 16 malloc - 16 malloc - 16 malloc - 16 malloc - 16 malloc - 16 ";

const CASE edges[] = {
    {"load ONE load - modules unload unload on 1 malloc a 64 statistics", "MEM_PRINT_LIB_LOAD=0",
     "Loading: MEM\nLoading: ONE\nLoading: \\(null\\)\n3 modules\nUnloading: \\(null\\)\nUnloading: ONE\n"
     "statistics 1/64\nUnloading: MEM\n"},
    {"setenv MEM_PRINT_LIB_LOAD '' load ONE unload", "", "Unloading: ONE\nUnloading: MEM\n"},
    // Only the module whose name begins so leads the line past the callback.
    {"load AMSG unload listen on 8 " + eight + eight + "malloc - 16 off 8 told load MSGX unload on 8 " +
         eight + "off 8 told",
     every_event,
     "told <Debug: MEM: Memory tracking: at timeline index 0 with total memory 16\n"
     "Debug: MEM: Memory tracking: at timeline index 8 with total memory 144\n"
     "Debug: MEM: Memory tracking: at timeline index 16 with total memory 272\n>\n"
     "Debug: MEM: Memory tracking: at timeline index 24 with total memory 400\ntold <>\n"},
    {"on 0 malloc a 64 statistics on 33 malloc b 64 off 32 malloc c 64 statistics off 1 malloc d 64 "
     "statistics on 8 enabled 12 enabled 0",
     "", "statistics 0/0\nstatistics 2/128\nstatistics 2/128\n0\n1\n"},
    // Guards give back what they found, and the second one found nothing.
    {"on 1 guard guard unguard enabled 1 unguard enabled 1 off 1 guard on 1 unguard enabled 1", "",
     "0\n1\n0\n"},
    {"listen on 64 " + eight + "off 64 statistics on 1 " + eight + "off 1 statistics told", every_event,
     "statistics 0/0\nstatistics 8/128\ntold <>\n"},
    {"on 95 block block malloc a 64 malloc b 64 free b unblock unblock statistics show a free a show -", "",
     "was blocked 0\nwas blocked 1\nwas blocked 1\nwas blocked 0\nstatistics 0/0\na none\n"
     "- live -1/-64 made 0/0 mismatched 0 peak 0\n"},
    {"map m 4096 statistics on 95 map m 4096 show m unmap m 4096 show m statistics unmap m 100 show -", "",
     "statistics 0/0\nm live 1/4096 made 1/4096 mismatched 0 peak 0\nm none\nstatistics 0/0\n"
     "- live -1/-100 made 0/0 mismatched 0 peak 0\n"},
    // Nobody can ask about a block at null, but it is charged, and its removal goes to where it came from.
    {"on 9 map - 4096 unmap - 4096 statistics show -", "",
     "statistics 0/0\n- live 0/0 made 0/0 mismatched 0 peak 0\n"},
    {"show_module OTHER show_module tracked_host on 12 malloc a 1024 show a show_inside a "
     "show_module tracked_host show_module TRACKED_HOST free a show a show_module tracked_host show - "
     "reset show_module OTHER show -",
     "",
     "OTHER live 0/0 made 0/0 mismatched 0 peak 0\ntracked_host none\n"
     "a live 1/1024 made 1/1024 mismatched 0 peak 0\na none\n"
     "tracked_host live 1/1024 made 1/1024 mismatched 0 peak 0\nTRACKED_HOST none\na none\n"
     "tracked_host live 0/0 made 1/1024 mismatched 0 peak 0\n- live 0/0 made 0/0 mismatched 0 peak 0\n"
     "OTHER none\n- live 0/0 made 0/0 mismatched 0 peak 0\n"},
    // 8128 + 8129 + 1 bytes, of which the first count. The peak is the first recorded one.
    {"on 8 map m 8128 unmap_elsewhere m 8128 map m 8129 unmap_elsewhere m 8129 map m 1 show m", "",
     "m live 1/1 made 3/16258 mismatched 8128 peak 8128\n"},
    {"on 4 malloc a 1024 show a show_module tracked_host off 4 "
     "on 16 malloc b 1024 malloc c 1024 free_elsewhere b show c on 8 malloc d 1024 free c show d",
     "",
     "a live 0/0 made 0/0 mismatched 0 peak 0\n"
     "tracked_host live 1/1024 made 1/1024 mismatched 0 peak 0\n"
     "c live 1/1024 made 2/2048 mismatched 0 peak 0\n"
     "d live 1/1024 made 3/3072 mismatched 1024 peak 2048\n"},
    {"calloc a " + too_much + " on 95 malloc b 64 errno malloc c " + too_much + " calloc d " + too_much +
         " errno statistics",
     "", "ENOMEM\nENOMEM\nstatistics 1/64\n"},
    // An allocation reported where a block still lives.
    {"on 8 malloc a 1024 malloc b 1024 map a 100 show a show b", "",
     "a live 1/100 made 1/100 mismatched 0 peak 0\nb live 2/2048 made 2/2048 mismatched 0 peak 0\n"},
};

TEST(Edges, PrintWhatTheyMust) {
    for (CASE edge : edges) {
        edge.command.insert(0, "tracked_host script ");
        expect(edge);
    }
}
