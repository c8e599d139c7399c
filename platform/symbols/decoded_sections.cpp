#include "platform/symbols/decoded_sections.h"

#include <libdeflate.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace symbols {
namespace {

constexpr std::uint32_t compression_zlib = 1;
constexpr std::uint32_t compression_zstd = 2;

// Where variables live: a good part of the whole, and of no use for names.
constexpr std::array<std::string_view, 2> needless_sections = {".debug_loc", ".debug_loclists"};

// More than the formats can express is the claim of a damaged file.
constexpr std::uint64_t most_per_byte = 1 << 16;

// A file as it lies in memory, cut anywhere.
class RAW_FILE {
  public:
    RAW_FILE(const char* begin, std::size_t length) : bytes(begin, length) {
        if (!read(0, header)) return;
        const bool is_usual =
            header.e_ident[EI_CLASS] == ELFCLASS64 && header.e_shentsize == sizeof(Elf64_Shdr);
        const std::uint64_t all = std::uint64_t{header.e_shnum} * sizeof(Elf64_Shdr);
        if (is_usual && holds(header.e_shoff, all)) number = header.e_shnum;
    }
    std::string_view all() const { return bytes; }
    std::size_t count() const { return number; }
    std::size_t header_at(std::size_t i) const { return header.e_shoff + i * sizeof(Elf64_Shdr); }
    Elf64_Shdr section(std::size_t i) const {
        Elf64_Shdr found{};
        read(header_at(i), found);
        return found;
    }
    std::string_view contents(const Elf64_Shdr& section) const {
        return holds(section.sh_offset, section.sh_size) ? bytes.substr(section.sh_offset, section.sh_size)
                                                         : std::string_view();
    }
    std::string_view name(const Elf64_Shdr& section) const {
        if (header.e_shstrndx >= number) return {};
        const std::string_view names = contents(this->section(header.e_shstrndx));
        if (section.sh_name >= names.size()) return {};
        return names.substr(section.sh_name, names.find('\0', section.sh_name) - section.sh_name);
    }

  private:
    template <class T>
    bool read(std::size_t at, T& value) const {
        if (!holds(at, sizeof value)) return false;
        std::memcpy(&value, bytes.data() + at, sizeof value);
        return true;
    }
    bool holds(std::uint64_t at, std::uint64_t size) const {
        return at <= bytes.size() && size <= bytes.size() - at;
    }

    std::string_view bytes;
    Elf64_Ehdr header{};
    std::size_t number = 0;
};

struct COMPRESSED_SECTION {
    std::size_t number = 0;
    Elf64_Shdr header{};
    Elf64_Chdr compression{};
    std::string_view data;
    bool is_needless = false;
};

std::vector<COMPRESSED_SECTION> compressed_sections(const RAW_FILE& file) {
    std::vector<COMPRESSED_SECTION> found;
    for (std::size_t i = 0; i < file.count(); ++i) {
        COMPRESSED_SECTION section;
        section.number = i;
        section.header = file.section(i);
        if ((section.header.sh_flags & SHF_COMPRESSED) == 0) continue;
        const std::string_view contents = file.contents(section.header);
        Elf64_Chdr& compression = section.compression;
        if (contents.size() < sizeof compression) continue;
        std::memcpy(&compression, contents.data(), sizeof compression);
        const bool is_known =
            compression.ch_type == compression_zlib || compression.ch_type == compression_zstd;
        if (!is_known || compression.ch_size / most_per_byte > contents.size()) continue;
        section.data = contents.substr(sizeof compression);
        section.is_needless =
            std::ranges::find(needless_sections, file.name(section.header)) != needless_sections.end();
        found.push_back(section);
    }
    return found;
}

bool decode_zlib(std::string_view data, char* target, std::size_t size) {
    const std::unique_ptr<libdeflate_decompressor, decltype(&libdeflate_free_decompressor)> decoder(
        libdeflate_alloc_decompressor(), libdeflate_free_decompressor);
    // Without a place for the size it must be exact.
    return decoder != nullptr && libdeflate_zlib_decompress(decoder.get(), data.data(), data.size(), target,
                                                            size, nullptr) == LIBDEFLATE_SUCCESS;
}

bool decode(const COMPRESSED_SECTION& section, char* target) {
    const std::size_t size = section.compression.ch_size;
    if (section.compression.ch_type == compression_zlib) return decode_zlib(section.data, target, size);
    return ZSTD_decompress(target, size, section.data.data(), section.data.size()) == size;
}

constexpr std::size_t aligned(std::size_t offset) {
    constexpr std::size_t alignment = 16;
    return (offset + alignment - 1) / alignment * alignment;
}

std::size_t size_with(const RAW_FILE& file, const std::vector<COMPRESSED_SECTION>& sections) {
    std::size_t size = file.all().size();
    for (const COMPRESSED_SECTION& section : sections)
        if (!section.is_needless) size = aligned(size) + section.compression.ch_size;
    return size;
}

// One that cannot be decoded stays as it is.
void replace(const COMPRESSED_SECTION& section, char* image, std::size_t header_at, std::size_t begin) {
    Elf64_Shdr header = section.header;
    if (section.is_needless) {
        header.sh_type = SHT_NOBITS;
        header.sh_size = 0;
    } else if (decode(section, image + begin)) {
        header.sh_offset = begin;
        header.sh_size = section.compression.ch_size;
        header.sh_addralign = section.compression.ch_addralign;
    } else {
        return;
    }
    header.sh_flags &= ~std::uint64_t{SHF_COMPRESSED};
    std::memcpy(image + header_at, &header, sizeof header);
}

}  // namespace

DECODED_IMAGE image_with_decoded_sections(Elf* elf) {
    std::size_t raw_size = 0;
    const char* raw = elf_rawfile(elf, &raw_size);
    if (raw == nullptr) return {};
    const RAW_FILE file(raw, raw_size);
    const std::vector<COMPRESSED_SECTION> sections = compressed_sections(file);
    if (sections.empty()) return {};
    DECODED_IMAGE image;
    image.size = size_with(file, sections);
    image.bytes = std::make_unique_for_overwrite<char[]>(image.size);
    std::memcpy(image.bytes.get(), raw, raw_size);
    std::size_t end = raw_size;
    for (const COMPRESSED_SECTION& section : sections) {
        const std::size_t begin = aligned(end);
        replace(section, image.bytes.get(), file.header_at(section.number), begin);
        if (!section.is_needless) end = begin + section.compression.ch_size;
    }
    return image;
}

}  // namespace symbols
