// What the files of modules say of their code. What reads them is a library of its own,
// libktl_mem_symbols.so: it brings others into the process, which a program whose code another process names
// does without.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/symbol_services.h"

namespace symbols {

// All that is known about the code of one module. Addresses are those of its file. The functions have the
// meaning of those in symbol_services.h, but for the instruction at the address.
class CODE_DESCRIPTION {
  public:
    CODE_DESCRIPTION() = default;
    virtual ~CODE_DESCRIPTION() = default;
    CODE_DESCRIPTION(const CODE_DESCRIPTION&) = delete;
    CODE_DESCRIPTION& operator=(const CODE_DESCRIPTION&) = delete;

    // Neither the module's file nor a debug file of its build could be opened.
    virtual bool is_unread() const = 0;
    // The instruction that a captured address stands for: the call in front of a return address. The start of
    // a function is one, too, where the function before it ends with a call that does not return.
    virtual std::uint64_t instruction(const CODE_ADDRESS& address) const = 0;
    virtual std::vector<FRAME> find_frames(std::uint64_t address) = 0;
    virtual bool find_place(std::uint64_t address, PLACE& place) = 0;
    virtual bool find_symbol(std::uint64_t address, SYMBOL& symbol) = 0;
};

// The readers. They live as long as the process.
struct SYMBOL_FILES {
    std::shared_ptr<CODE_DESCRIPTION> (*read)(const std::string& path, const std::string& build_id);
    std::string (*demangled)(const char* linkage_name);
    // An address in each of the libraries whose thread-local data are taken over.
    std::array<const void*, 2> code_of_libraries;
};

// Opens the readers' library; null when it is missing. Waits for the loader.
const SYMBOL_FILES* open_symbol_files();

}  // namespace symbols

// The one export of the readers' library.
extern "C" const symbols::SYMBOL_FILES* ktl_mem_symbol_files();
