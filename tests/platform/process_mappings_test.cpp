#include "platform/process_mappings.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "platform/memory_limits.h"
#include "platform/process_memory.h"

namespace {

MAPPING_BUFFERS buffers;

TEST(MappingText, ReadsLinesOfMaps) {
    const auto file =
        parse_mapping_line("7f00aa000-7f00ab000 r-xs 00002000 fe:00 247498      /usr/lib/a b.so (deleted)");
    ASSERT_TRUE(file);
    EXPECT_EQ(file->begin, 0x7f00aa000U);
    EXPECT_EQ(file->end, 0x7f00ab000U);
    EXPECT_TRUE(file->is_shared && file->is_executable && file->is_accessible && !file->is_writable);
    EXPECT_EQ(file->inode, 247498U);
    EXPECT_EQ(file->name, "/usr/lib/a b.so (deleted)");
    const auto guard = parse_mapping_line("1000-2000 ---p 00000000 00:00 0 ");
    ASSERT_TRUE(guard);
    EXPECT_FALSE(guard->is_accessible);
    EXPECT_EQ(guard->name, "");
    for (const char* bad : {"", "Rss:   4 kB", "1000-", "2000-1000 r--p 0 0:0 0", "1000-2000 r",
                            "1-2 rw-p 0 0:0 x", "Anonymous:  0 kB"})
        EXPECT_FALSE(parse_mapping_line(bad)) << bad;
}

class FIND final : public MAPPING_VISITOR {
  public:
    explicit FIND(const void* of) : wanted(reinterpret_cast<std::uint64_t>(of)) {}
    void visit(const PROCESS_MAPPING& mapping) override {
        sum += mapping.resident;
        if (mapping.begin <= wanted && wanted < mapping.end) found = mapping;
    }
    const std::uint64_t wanted;
    std::uint64_t sum = 0;
    PROCESS_MAPPING found;
};

// Pages that were only read share one page of zeros, which counts for nobody.
TEST(ProcessMappings, SeeWhatIsResidentAndAddUpToTheResidentSize) {
    constexpr std::size_t size = 64 << 20;
    constexpr std::size_t touched = 24 << 20;
    const std::tuple<const char*, int, std::size_t> cases[] = {
        {"written", MAP_PRIVATE, touched}, {"read", MAP_PRIVATE, 0}, {"shared", MAP_SHARED, touched}};
    for (const auto& [name, kind, resident] : cases) {
        SCOPED_TRACE(name);
        auto* const memory = static_cast<volatile char*>(
            mmap(nullptr, size, PROT_READ | PROT_WRITE, kind | MAP_ANONYMOUS, -1, 0));
        ASSERT_NE(memory, MAP_FAILED);
        auto* const begin = const_cast<char*>(memory);
        madvise(begin, size, MADV_NOHUGEPAGE);
        // Every other page of the last megabyte, which makes many regions.
        for (std::size_t at = 0; at < touched + (1 << 20); at += at < touched ? 4096 : 8192) {
            if (resident != 0) memory[at] = 1;
            static_cast<void>(memory[at]);
        }
        for (const auto visit : {visit_process_mappings, visit_mappings_by_smaps}) {
            FIND find(begin + touched);
            ASSERT_TRUE(visit(find, buffers));
            PROCESS_MEMORY_COUNTERS counters;
            ASSERT_TRUE(K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters));
            EXPECT_EQ(find.found.is_anonymous(), kind == MAP_PRIVATE);
            EXPECT_EQ(find.found.resident, resident == 0 ? 0 : resident + (1 << 19));
            EXPECT_NEAR(static_cast<double>(find.sum), static_cast<double>(counters.WorkingSetSize), 1 << 20);
        }
        munmap(begin, size);
    }
}

TEST(ProcessMappings, KnowStacksOfThreadsFromOtherMemory) {
    std::uint64_t top = 0;
    std::thread([&top] {
        pthread_attr_t attributes;
        void* begin = nullptr;
        std::size_t size = 0;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstack(&attributes, &begin, &size);
        pthread_attr_destroy(&attributes);
        FIND find(&attributes);
        ASSERT_TRUE(visit_process_mappings(find, buffers));
        top = find.found.end;
        EXPECT_TRUE(is_top_of_thread_stack(top, buffers));
    }).join();
    static char other[1 << 14];
    EXPECT_FALSE(is_top_of_thread_stack(reinterpret_cast<std::uint64_t>(other + sizeof other), buffers));
    EXPECT_FALSE(is_top_of_thread_stack(4096, buffers));
    EXPECT_TRUE(is_in_loaded_module(reinterpret_cast<std::uint64_t>(other)));
    EXPECT_FALSE(is_in_loaded_module(reinterpret_cast<std::uint64_t>(&top)));
}

TEST(MemoryLimits, FindTheMemoryCgroupAndTheProcessesOwnLimit) {
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"9:name=systemd:/\n4:memory:/box/1\n0::/other\n", "/box/1", true},
        {"12:cpu,cpuacct:/x\n0::/user.slice/a:b\n", "/user.slice/a:b", false},
        {"0::/\n", "/", false},
        {"5:cpu:/\nnonsense\n", "", false},
        {"", "", false},
    };
    for (const auto& [text, path, is_first_version] : cases) {
        const CGROUP_PLACE place = find_memory_cgroup(text);
        EXPECT_EQ(place.path, path) << text;
        EXPECT_EQ(place.is_first_version, is_first_version) << text;
    }
    rlimit found{};
    getrlimit(RLIMIT_AS, &found);
    const rlimit limit{std::uint64_t{1} << 45, found.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
    EXPECT_EQ(address_space_limit(0), limit.rlim_cur);
    setrlimit(RLIMIT_AS, &found);
}

// outer has the least room left, though inner's limit is lower.
TEST(MemoryLimits, AreThoseOfTheGroupWithTheLeastRoom) {
    namespace fs = std::filesystem;
    const fs::path root = fs::temp_directory_path() / ("ktl_mem_cgroups." + std::to_string(getpid()));
    const auto write = [&](const char* folder, const char* name, const char* text) {
        fs::create_directories(root / folder);
        std::ofstream(root / folder / name) << text;
    };
    write("outer/inner/leaf", "memory.max", "max\n");
    write("outer/inner", "memory.max", "1000\n");
    write("outer/inner", "memory.current", "100\n");
    write("outer", "memory.max", "2000\n");
    write("outer", "memory.current", "1900\n");
    write("outer", "memory.events", "low 0\nhigh 5\nmax 9\noom 4\noom_kill 3\noom_group_kill 0\n");
    write("first/group", "memory.limit_in_bytes", "9223372036854771712\n");
    write("first", "memory.limit_in_bytes", "700\n");
    write("first", "memory.usage_in_bytes", "800\n");
    write("first", "memory.oom_control", "oom_kill_disable 0\nunder_oom 1\noom_kill 2\n");
    const struct {
        CGROUP_PLACE place;
        std::uint64_t limit, usage, kills;
        const char* folder;
    } cases[] = {{{"/outer/inner/leaf", false}, 2000, 1900, 3, "outer"},
                 {{"/not/here", false}, no_memory_limit, 0, 0, nullptr},
                 {{"/first/group", true}, 700, 800, 2, "first"},
                 {{"/", true}, no_memory_limit, 0, 0, nullptr}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.place.path);
        CGROUP_MEMORY found;
        EXPECT_EQ(read_cgroups(root.c_str(), c.place, found), c.folder != nullptr);
        EXPECT_EQ(found.limit, c.limit);
        EXPECT_EQ(found.usage, c.usage);
        EXPECT_EQ(found.oom_kills, c.kills);
        EXPECT_EQ(std::string(found.folder), c.folder == nullptr ? "" : (root / c.folder).string());
    }
    fs::remove_all(root);
}

}  // namespace
