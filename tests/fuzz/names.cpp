#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/symbols/name_messages.h"
#include "tests/fuzz/targets.h"
#include "tools/memrun/names/disk_cache.h"

namespace fuzz {

namespace {

using memrun::names::CachedNames;
using memrun::names::DiskCache;

// What was read once is read again the same way.
void read_messages(std::string_view bytes) {
    symbols::TEXT_READER asked(bytes);
    symbols::NAME_QUESTION question;
    if (symbols::read_question(asked, question)) {
        symbols::TEXT_WRITER again;
        symbols::write_question(question, again);
        require(again.size() <= bytes.size(), "a question is as long as it was");
    }
    symbols::TEXT_READER answered(bytes);
    std::vector<symbols::FRAME> levels;
    if (symbols::read_levels(answered, levels)) {
        symbols::TEXT_WRITER again;
        symbols::write_levels(levels, again);
        require(again.size() <= bytes.size(), "an answer is as long as it was");
    }
}

class CacheFolder {
  public:
    CacheFolder() {
        char name[] = "/tmp/fuzz_names_XXXXXX";
        require(mkdtemp(name) != nullptr, "there is a folder");
        path = name;
    }
    ~CacheFolder() { std::filesystem::remove_all(path); }
    CacheFolder(const CacheFolder&) = delete;
    CacheFolder& operator=(const CacheFolder&) = delete;

    std::string path;
};

void write(const std::string& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// The mark and the sum in front are put right, so that what lies behind them is read.
void take(Bytes bytes) {
    static const CacheFolder folder;
    const std::string text = text_of(bytes);
    read_messages(text);
    const DiskCache cache(folder.path, 1 << 20);
    const std::string file = folder.path + "/ab.names";
    write(file, text);
    cache.load("\xab");
    constexpr std::uint64_t mark = 0x32'30'73'65'6d'61'6e'6b;
    symbols::TEXT_WRITER whole;
    whole.number(mark);
    whole.number(static_cast<std::uint32_t>(crc32_z(0, bytes.data(), bytes.size())));
    whole.text(text);
    write(file, whole.get());
    const CachedNames read = cache.load("\xab");
    if (read.empty()) return;
    std::filesystem::remove(file);
    cache.store("\xab", read);
    require(cache.load("\xab").size() == read.size(), "what is stored is there");
}

std::vector<std::string> seeds() {
    const std::vector<symbols::FRAME> levels = {{"/src/a.cpp", "f()", 7, std::nullopt}, {"", "g", 0, 0x1c}};
    symbols::TEXT_WRITER question;
    symbols::write_question({"/bin/app", "\x01\x02", true, {{0x1234, true}, {0x2000, false}}}, question);
    symbols::TEXT_WRITER answer;
    symbols::write_levels(levels, answer);
    const CacheFolder folder;
    DiskCache(folder.path, 1 << 20)
        .store("\xab",
               {{{0x1234, symbols::BEHIND::call}, levels}, {{0x2000, symbols::BEHIND::anything}, {}}});
    std::ifstream file(folder.path + "/ab.names", std::ios::binary);
    const std::string stored{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    constexpr std::size_t head = 8 + 4 + 4;  // mark, sum, length
    return {question.get(), answer.get(), stored.substr(head)};
}

}  // namespace

const Target names = {"names", take, seeds};

}  // namespace fuzz
