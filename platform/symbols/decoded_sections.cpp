#include "platform/symbols/decoded_sections.h"

#include <zstd.h>

#include <cstdint>
#include <cstring>

namespace symbols {
namespace {

constexpr std::uint32_t compression_zstd = 2;

// The section headers in a file's image, which may be cut anywhere.
class SECTION_HEADERS {
  public:
    explicit SECTION_HEADERS(const char* image, std::size_t size) {
        if (size < sizeof header) return;
        std::memcpy(&header, image, sizeof header);
        const bool is_usual =
            header.e_ident[EI_CLASS] == ELFCLASS64 && header.e_shentsize == sizeof(Elf64_Shdr);
        const std::uint64_t all = std::uint64_t{header.e_shnum} * sizeof(Elf64_Shdr);
        if (is_usual && header.e_shoff <= size && all <= size - header.e_shoff) number = header.e_shnum;
    }
    std::size_t count() const { return number; }
    std::size_t offset(std::size_t i) const { return header.e_shoff + i * sizeof(Elf64_Shdr); }

  private:
    Elf64_Ehdr header{};
    std::size_t number = 0;
};

bool read_header(const char* image, std::size_t size, std::size_t at, Elf64_Shdr& section,
                 Elf64_Chdr& compression) {
    std::memcpy(&section, image + at, sizeof section);
    if ((section.sh_flags & SHF_COMPRESSED) == 0 || section.sh_size < sizeof compression ||
        section.sh_offset > size || section.sh_size > size - section.sh_offset)
        return false;
    std::memcpy(&compression, image + section.sh_offset, sizeof compression);
    return compression.ch_type == compression_zstd;
}

// More than the format can express is the claim of a damaged file.
constexpr std::uint64_t most_per_byte = 1 << 16;

void append_decoded(std::vector<char>& image, std::size_t at) {
    Elf64_Shdr section;
    Elf64_Chdr compression;
    if (!read_header(image.data(), image.size(), at, section, compression) ||
        compression.ch_size / most_per_byte > section.sh_size)
        return;
    constexpr std::size_t alignment = 16;
    const std::size_t begin = (image.size() + alignment - 1) / alignment * alignment;
    image.resize(begin + compression.ch_size);
    const std::size_t decoded = ZSTD_decompress(image.data() + begin, compression.ch_size,
                                                image.data() + section.sh_offset + sizeof compression,
                                                section.sh_size - sizeof compression);
    if (decoded != compression.ch_size) return;
    section.sh_offset = begin;
    section.sh_size = compression.ch_size;
    section.sh_addralign = compression.ch_addralign;
    section.sh_flags &= ~std::uint64_t{SHF_COMPRESSED};
    std::memcpy(image.data() + at, &section, sizeof section);
}

bool has_zstd(const char* image, std::size_t size, const SECTION_HEADERS& headers) {
    Elf64_Shdr section;
    Elf64_Chdr compression;
    for (std::size_t i = 0; i < headers.count(); ++i)
        if (read_header(image, size, headers.offset(i), section, compression)) return true;
    return false;
}

}  // namespace

std::vector<char> image_with_decoded_sections(Elf* elf) {
    std::size_t size = 0;
    const char* raw = elf_rawfile(elf, &size);
    if (raw == nullptr) return {};
    const SECTION_HEADERS headers(raw, size);
    if (!has_zstd(raw, size, headers)) return {};
    std::vector<char> image(raw, raw + size);
    for (std::size_t i = 0; i < headers.count(); ++i) append_decoded(image, headers.offset(i));
    return image;
}

}  // namespace symbols
