// The functions that a module's symbol tables name. Addresses are those of the file.
#pragma once

#include <libelf.h>

#include <cstdint>
#include <vector>

namespace symbols {

struct TABLE_SYMBOL {
    std::uint64_t begin = 0;
    std::uint64_t size = 0;
    const char* name = nullptr;  // in the mapped file
    int rank = 0;                // of several names for one address the highest is taken
};

class SYMBOL_TABLE {
  public:
    // Adds the functions of the file's full table, or of its dynamic one when it has no other.
    void add(Elf* elf);
    void finish();

    bool empty() const { return functions.empty(); }
    // The function that holds the address; null when there is none.
    const TABLE_SYMBOL* find(std::uint64_t address) const;
    bool is_function_start(std::uint64_t address) const;

  private:
    std::vector<TABLE_SYMBOL> functions;
};

}  // namespace symbols
