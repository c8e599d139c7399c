#include "tools/memrun/names/disk_cache.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unordered_map>

#include "platform/symbols/name_messages.h"

namespace fs = std::filesystem;

namespace memrun::names {

using symbols::FRAME;
using symbols::TEXT_READER;
using symbols::TEXT_WRITER;

namespace {

// Changes with the form of the files and with whatever makes other names of the same code.
constexpr std::uint64_t cache_mark = 0x32'30'73'65'6d'61'6e'6b;

constexpr std::uint64_t no_offset = UINT64_MAX;

std::string file_name_of(const std::string& build_id) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string name;
    for (const char c : build_id) {
        const auto byte = static_cast<unsigned char>(c);
        name += {digits[byte >> 4], digits[byte & 15]};
    }
    return name + ".names";
}

std::uint32_t checksum_of(const std::string& bytes) {
    return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

// Texts come again and again: each is written once, with a number.
class Texts {
  public:
    std::uint32_t number_of(const std::string& text) {
        const auto [entry, is_new] = numbers_.try_emplace(text, static_cast<std::uint32_t>(numbers_.size()));
        if (is_new) writer_.text(text);
        return entry->second;
    }
    std::size_t count() const { return numbers_.size(); }
    const std::string& bytes() const { return writer_.get(); }

  private:
    std::unordered_map<std::string, std::uint32_t> numbers_;
    TEXT_WRITER writer_;
};

std::string bytes_of(const CachedNames& names) {
    Texts texts;
    TEXT_WRITER records;
    for (const auto& [place, levels] : names) {
        records.number(place.in_file);
        records.number(static_cast<std::uint8_t>(place.behind));
        records.number(static_cast<std::uint16_t>(std::min<std::size_t>(levels.size(), UINT16_MAX)));
        for (std::size_t i = 0; i < std::min<std::size_t>(levels.size(), UINT16_MAX); ++i) {
            records.number(texts.number_of(levels[i].file));
            records.number(texts.number_of(levels[i].function));
            records.number(levels[i].line);
            records.number(levels[i].offset.value_or(no_offset));
        }
    }
    TEXT_WRITER all;
    all.number(static_cast<std::uint32_t>(texts.count()));
    all.number(static_cast<std::uint32_t>(names.size()));
    return all.get() + texts.bytes() + records.get();
}

bool read_level(TEXT_READER& reader, const std::vector<std::string_view>& texts, FRAME& level) {
    const auto file = reader.number<std::uint32_t>();
    const auto function = reader.number<std::uint32_t>();
    level.line = reader.number<std::uint32_t>();
    const auto offset = reader.number<std::uint64_t>();
    if (offset != no_offset) level.offset = offset;
    if (file >= texts.size() || function >= texts.size()) return false;
    level.file = texts[file];
    level.function = texts[function];
    return reader.is_good();
}

bool read_record(TEXT_READER& reader, const std::vector<std::string_view>& texts, CachedNames& names) {
    NamedPlace place;
    place.in_file = reader.number<std::uint64_t>();
    const auto behind = reader.number<std::uint8_t>();
    if (behind > static_cast<std::uint8_t>(symbols::BEHIND::no_call)) return false;
    place.behind = static_cast<symbols::BEHIND>(behind);
    const auto count = reader.number<std::uint16_t>();
    std::vector<FRAME> levels;
    for (std::uint16_t i = 0; i < count; ++i)
        if (!read_level(reader, texts, levels.emplace_back())) return false;
    names.emplace_hint(names.end(), place, std::move(levels));
    return reader.is_good();
}

CachedNames names_of(const std::string& bytes) {
    TEXT_READER reader(bytes);
    const auto text_count = reader.number<std::uint32_t>();
    const auto record_count = reader.number<std::uint32_t>();
    std::vector<std::string_view> texts;
    for (std::uint32_t i = 0; i < text_count && reader.is_good(); ++i) texts.push_back(reader.text());
    CachedNames names;
    for (std::uint32_t i = 0; i < record_count; ++i)
        if (!read_record(reader, texts, names)) return {};
    return names;
}

CachedNames read_file(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    if (!file || !(content << file.rdbuf())) return {};
    const std::string all = content.str();
    TEXT_READER reader(all);
    const auto mark = reader.number<std::uint64_t>();
    const auto checksum = reader.number<std::uint32_t>();
    const std::string bytes(reader.text());
    if (!reader.is_good() || mark != cache_mark || checksum != checksum_of(bytes)) return {};
    return names_of(bytes);
}

// Beside its final place, then moved there.
void write_file(const fs::path& path, const CachedNames& names) {
    const std::string bytes = bytes_of(names);
    TEXT_WRITER writer;
    writer.number(cache_mark);
    writer.number(checksum_of(bytes));
    writer.text(bytes);
    const fs::path draft = path.string() + "." + std::to_string(getpid());
    std::error_code error;
    {
        std::ofstream file(draft, std::ios::binary | std::ios::trunc);
        file.write(writer.get().data(), static_cast<std::streamsize>(writer.size()));
        file.close();
        if (!file) error = std::make_error_code(std::errc::io_error);
    }
    if (!error) fs::rename(draft, path, error);
    if (error) fs::remove(draft, error);
}

// One writer of the folder at a time, of any process.
class WritersTurn {
  public:
    explicit WritersTurn(const fs::path& folder)
        : file_(open((folder / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        if (file_ >= 0 && flock(file_, LOCK_EX) != 0) {
            close(file_);
            file_ = -1;
        }
    }
    ~WritersTurn() {
        if (file_ >= 0) close(file_);
    }
    WritersTurn(const WritersTurn&) = delete;
    WritersTurn& operator=(const WritersTurn&) = delete;
    bool is_mine() const { return file_ >= 0; }

  private:
    int file_;
};

struct StoredFile {
    fs::path path;
    std::uint64_t size;
    fs::file_time_type used;
};

std::vector<StoredFile> stored_files(const fs::path& folder) {
    std::vector<StoredFile> files;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        if (!entry.is_regular_file(error) || entry.path().filename() == "lock") continue;
        files.push_back({entry.path(), entry.file_size(error), entry.last_write_time(error)});
    }
    std::ranges::sort(files, {}, &StoredFile::used);
    return files;
}

}  // namespace

CachedNames DiskCache::load(const std::string& build_id) const {
    const fs::path path = fs::path(folder_) / file_name_of(build_id);
    CachedNames names = read_file(path);
    std::error_code no_matter;
    if (!names.empty()) fs::last_write_time(path, fs::file_time_type::clock::now(), no_matter);
    return names;
}

void DiskCache::store(const std::string& build_id, const CachedNames& names) const {
    std::error_code error;
    if (fs::create_directories(folder_, error)) fs::permissions(folder_, fs::perms::owner_all, error);
    const WritersTurn turn(folder_);
    if (!turn.is_mine()) return;
    const fs::path path = fs::path(folder_) / file_name_of(build_id);
    CachedNames all = read_file(path);
    const std::size_t known = all.size();
    all.insert(names.begin(), names.end());
    if (all.size() == known) return;
    write_file(path, all);
    bound();
}

// With the turn.
void DiskCache::bound() const {
    std::vector<StoredFile> files = stored_files(folder_);
    std::uint64_t size = 0;
    for (const StoredFile& file : files) size += file.size;
    // Down to three quarters, so that not every store has to look for room.
    const std::uint64_t wanted = size > most_bytes_ ? most_bytes_ / 4 * 3 : size;
    std::error_code no_matter;
    for (std::size_t i = 0; i < files.size() && size > wanted; ++i) {
        fs::remove(files[i].path, no_matter);
        size -= files[i].size;
    }
}

std::string default_cache_folder() {
    const char* cache = std::getenv("XDG_CACHE_HOME");
    if (cache != nullptr && cache[0] == '/') return std::string(cache) + "/ktl_mem";
    const char* home = std::getenv("HOME");
    std::error_code error;  // users of daemons have a home that is not there, and must not get one
    if (home == nullptr || home[0] != '/' || !fs::is_directory(home, error)) return "";
    return std::string(home) + "/.cache/ktl_mem";
}

}  // namespace memrun::names
