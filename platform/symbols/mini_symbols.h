// The symbol table that some distributions leave in a stripped file, compressed.
#pragma once

#include <libelf.h>

#include <memory>
#include <vector>

namespace symbols {

// The ELF file within the section .gnu_debugdata, decompressed.
class MINI_SYMBOLS {
  public:
    // Null when the file has no such section, or a damaged one.
    static std::unique_ptr<MINI_SYMBOLS> find(Elf* elf);
    ~MINI_SYMBOLS() { elf_end(handle); }
    MINI_SYMBOLS(const MINI_SYMBOLS&) = delete;
    MINI_SYMBOLS& operator=(const MINI_SYMBOLS&) = delete;

    Elf* elf() const { return handle; }

  private:
    MINI_SYMBOLS(std::vector<char> bytes, Elf* elf) : image(std::move(bytes)), handle(elf) {}

    std::vector<char> image;
    Elf* handle;
};

}  // namespace symbols
