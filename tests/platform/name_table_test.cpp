#include "platform/symbols/name_table.h"

#include <gmock/gmock.h>

#include <cstring>
#include <memory>
#include <random>

namespace {

using symbols::BEHIND;
using symbols::FRAME;
using symbols::NAME_TABLE;
using symbols::NAME_TABLE_READER;
using symbols::NAME_TABLE_WRITER;
using testing::ElementsAre;
using testing::IsEmpty;

std::unique_ptr<NAME_TABLE> empty_table() {
    return std::make_unique<NAME_TABLE>();
}

// What the table knows of the place in the module "/bin/app" of build "id".
std::vector<std::string> names_of(const NAME_TABLE& table, std::uint64_t in_file,
                                  bool is_behind_call = true) {
    const NAME_TABLE_READER reader(table);
    const std::uint32_t module = reader.find_module("/bin/app", "id");
    const auto found = reader.find(module, in_file, [=] { return is_behind_call; });
    if (module == 0 || found.place == 0) return {"unknown"};
    std::vector<std::string> names;
    for (std::size_t i = 0; i < found.record.levels; ++i) {
        const symbols::LEVEL level = reader.level(found, i);
        names.push_back(std::string(level.function) + " at " + std::string(level.file) + ":" +
                        std::to_string(level.line) +
                        (level.offset ? "+" + std::to_string(*level.offset) : ""));
    }
    return names;
}

FRAME frame(const std::string& function, std::uint32_t line) {
    return {"/src/a.cpp", function, line, std::nullopt};
}

TEST(NameTable, KnowsWhatWasEntered) {
    const auto table = empty_table();
    EXPECT_THAT(names_of(*table, 0x10), ElementsAre("unknown"));
    NAME_TABLE_WRITER writer(*table);
    const std::uint32_t module = writer.enter_module("/bin/app", "id");
    const std::uint32_t other = writer.enter_module("/bin/app", "another build");
    EXPECT_NE(module, other);
    writer.enter(module, 0x10, BEHIND::anything, {frame("inner()", 3), frame("outer()", 7)});
    writer.enter(module, 0x10, BEHIND::anything, {frame("too late", 1)});
    writer.enter(other, 0x20, BEHIND::anything, {frame("elsewhere", 1)});
    writer.enter(module, 0x30, BEHIND::call, {frame("before()", 8)});
    writer.enter(module, 0x30, BEHIND::no_call, {{"", "start()", 0, 5}});
    writer.enter(module, 0x40, BEHIND::call, {});
    EXPECT_THAT(names_of(*table, 0x10), ElementsAre("inner() at /src/a.cpp:3", "outer() at /src/a.cpp:7"));
    EXPECT_THAT(names_of(*table, 0x20), ElementsAre("unknown"));
    EXPECT_THAT(names_of(*table, 0x30), ElementsAre("before() at /src/a.cpp:8"));
    EXPECT_THAT(names_of(*table, 0x30, false), ElementsAre("start() at :0+5"));
    EXPECT_THAT(names_of(*table, 0x40), IsEmpty());
    EXPECT_THAT(names_of(*table, 0x40, false), ElementsAre("unknown"));
}

TEST(NameTable, TakesWhatFitsAndNoMore) {
    const auto table = empty_table();
    std::uint64_t entered = 0;
    const std::string text(100'000, 'x');
    // By several writers in turn, as after the death of one.
    for (std::uint64_t in_file = 0; in_file < 200; ++in_file) {
        NAME_TABLE_WRITER writer(*table);
        const std::uint32_t module = writer.enter_module("/bin/app", "id");
        writer.enter(module, in_file, BEHIND::anything, {frame(text + std::to_string(in_file), 1)});
        if (names_of(*table, in_file)[0] != "unknown") ++entered;
    }
    // 15 MiB hold 157 of such texts.
    EXPECT_EQ(entered, 157);
    EXPECT_THAT(names_of(*table, 7), ElementsAre(text + "7 at /src/a.cpp:1"));
}

TEST(NameTable, StaysQuickWhenItsSlotsAreTaken) {
    const auto table = empty_table();
    NAME_TABLE_WRITER writer(*table);
    const std::uint32_t module = writer.enter_module("/bin/app", "id");
    for (std::uint64_t in_file = 0; in_file < 140'000; ++in_file)
        writer.enter(module, in_file, BEHIND::anything, {});
    EXPECT_THAT(names_of(*table, 7), IsEmpty());
    EXPECT_THAT(names_of(*table, 200'000), ElementsAre("unknown"));
    // No more records than slots were written.
    EXPECT_LE(table->used.load(), 16 * NAME_TABLE::slot_count + 100);
}

// Whatever a reader finds, it lies within the table.
TEST(NameTable, MayBeDamaged) {
    std::mt19937 random(1);  // NOLINT(bugprone-random-generator-seed)
    for (int round = 0; round < 20; ++round) {
        const auto table = empty_table();
        NAME_TABLE_WRITER writer(*table);
        const std::uint32_t module = writer.enter_module("/bin/app", "id");
        for (std::uint64_t in_file = 0; in_file < 50; ++in_file)
            writer.enter(module, in_file, BEHIND::anything, {frame("f" + std::to_string(in_file), 1)});
        for (std::uint32_t at = 0; at < table->used.load(); at += 4) {
            const std::uint32_t word = round % 2 == 0 ? static_cast<std::uint32_t>(random()) : 0x00efffff;
            if (random() % 8 == 0) std::memcpy(table->content + at, &word, sizeof word);
        }
        for (auto& slot : table->slots)
            if (slot.load() != 0 && random() % 4 == 0) slot = slot.load() >> 32 << 32 | random() % (16 << 20);
        for (std::uint64_t in_file = 0; in_file < 50; ++in_file) names_of(*table, in_file);
    }
}

}  // namespace
