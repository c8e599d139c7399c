#include "platform/symbols/mini_symbols.h"

#include <gelf.h>
#include <lzma.h>

#include <cstdint>
#include <string_view>

namespace symbols {
namespace {

// A larger one is damaged: these tables have a few megabytes.
constexpr std::size_t largest_image = std::size_t{256} << 20;

Elf_Data* find_section(Elf* elf, std::string_view wanted) {
    std::size_t names = 0;
    if (elf_getshdrstrndx(elf, &names) != 0) return nullptr;
    for (Elf_Scn* section = elf_nextscn(elf, nullptr); section != nullptr;
         section = elf_nextscn(elf, section)) {
        GElf_Shdr header;
        if (gelf_getshdr(section, &header) == nullptr) continue;
        const char* name = elf_strptr(elf, names, header.sh_name);
        if (name != nullptr && name == wanted) return elf_rawdata(section, nullptr);
    }
    return nullptr;
}

// Empty when the data is no whole stream.
std::vector<char> decompressed(const Elf_Data& data) {
    lzma_stream stream = LZMA_STREAM_INIT;
    if (lzma_stream_decoder(&stream, largest_image, 0) != LZMA_OK) return {};
    stream.next_in = static_cast<const std::uint8_t*>(data.d_buf);
    stream.avail_in = data.d_size;
    std::vector<char> bytes;
    lzma_ret result = LZMA_OK;
    while (result == LZMA_OK && bytes.size() < largest_image) {
        bytes.resize(bytes.size() + data.d_size + 65536);
        stream.next_out = reinterpret_cast<std::uint8_t*>(bytes.data()) + stream.total_out;
        stream.avail_out = bytes.size() - stream.total_out;
        result = lzma_code(&stream, LZMA_FINISH);
    }
    bytes.resize(result == LZMA_STREAM_END ? stream.total_out : 0);
    lzma_end(&stream);
    return bytes;
}

}  // namespace

std::unique_ptr<MINI_SYMBOLS> MINI_SYMBOLS::find(Elf* elf) {
    const Elf_Data* data = find_section(elf, ".gnu_debugdata");
    if (data == nullptr || data->d_buf == nullptr) return nullptr;
    std::vector<char> bytes = decompressed(*data);
    if (bytes.empty()) return nullptr;
    Elf* inner = elf_memory(bytes.data(), bytes.size());
    if (inner == nullptr) return nullptr;
    return std::unique_ptr<MINI_SYMBOLS>(new MINI_SYMBOLS(std::move(bytes), inner));
}

}  // namespace symbols
