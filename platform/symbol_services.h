// Names for addresses: the module that holds a program counter, and the source lines and functions that it
// stands for.
//
// Addresses are return addresses as a stack walk captures them. What is looked up is the call itself, one
// byte in front, unless the address is exactly the start of a function.
//
// Nothing here calls the loader or takes its lock, and no network service is ever asked for debug
// information. The calls allocate, read files under the module's own path and /usr/lib/debug, and keep
// what they learned, so that code that is unloaded later still has its names. A file that is missing,
// damaged or another build than the loaded one costs its names, never the process.
//
// The calls are not safe against each other: the caller holds one lock of its own around them. They may be
// made in an allocator hook whose thread is marked as being inside the tracker. They throw nothing but
// std::bad_alloc. Names and lines are looked up on a stack of the services' own, however small the caller's
// is, and signals other than those of a fault wait meanwhile.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ktl_mem/export.h"

namespace symbols {

struct MODULE {
    std::uint64_t begin = 0;  // first address of the loaded image
    std::uint64_t end = 0;    // one past its last
    std::uint64_t bias = 0;   // address in memory less address in the file
    std::string name;         // base name, by the rule of module_name.h
    std::string path;         // absolute; empty for what has no file
    std::string build_id;     // raw bytes; empty when the image has none
    bool is_executable = false;
};

// One level of an address. Texts are empty and the line is 0 when unknown.
struct FRAME {
    std::string file;      // absolute, as the compiler noted it
    std::string function;  // readable, qualified, with parameters and without return type
    std::uint32_t line = 0;
    // How far the address lies behind the function's start, where nothing but a symbol table knows it.
    std::optional<std::uint64_t> offset;
};

// A captured address by itself, as somebody without this process's memory can name it.
struct CODE_ADDRESS {
    std::uint64_t in_file = 0;
    bool is_behind_call = false;
};

// Opens the library that reads the files of modules, libktl_mem_symbols.so, which lies beside this one. Until
// then no code has lines or functions; from then on look-ups need the loader no more, not even for
// thread-local data. Waits for the loader. Any number of times, from any thread. Exported for the launcher's
// agent, which comes with the library, and for nobody else.
KTL_MEM_API void open_files();
bool has_open_files();

// Whether modules that nobody has asked about yet may be taken into the list.
enum class LISTING { KNOWN, CURRENT };

// The module that holds the address: the one loaded there now, else the latest one seen there. Null when
// there is none. KNOWN looks only among those listed before. The result lives as long as the process.
const MODULE* find_module(std::uint64_t address, LISTING listing);

// The module of an image that was found loaded, now or before, from the file at path; it is listed from then
// on.
struct LOADED_IMAGE;
const MODULE* find_module(const LOADED_IMAGE& image, const std::string& path);

// Lists all modules that are loaded now.
void refresh_modules();

// The addresses within the module's file. Reads the program's code, and no file.
std::vector<CODE_ADDRESS> locate(std::span<const std::uint64_t> addresses, const MODULE& module);

// The levels of the address, innermost first: the innermost inlined function, then its callers outwards,
// each at its own place. Empty when nothing is known. Lists new modules by itself.
std::vector<FRAME> find_frames(std::uint64_t address);
// The same in a module that the address lay in, whatever is loaded there now.
std::vector<FRAME> find_frames(std::uint64_t address, const MODULE& module);

// The place of the innermost level alone. False when there is no line information.
struct PLACE {
    std::string file;
    std::uint32_t line = 0;
};
bool find_place(std::uint64_t address, PLACE& place);

// The function whose code holds the address, inlining left aside: its name as the linker knows it, and
// where it begins. False when there is none.
struct SYMBOL {
    std::string name;
    std::uint64_t begin = 0;
};
bool find_symbol(std::uint64_t address, SYMBOL& symbol);

// The readable form of a linker's name, without return type; what is no such name comes back unchanged.
std::string readable_name(const std::string& linkage_name);

}  // namespace symbols
