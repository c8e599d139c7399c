// Which unit of a file's debug information, and which function of the unit, an address belongs to.
//
// The file's own address table is not used: some compilers leave it out. The units' ranges are read once
// for the file, and a unit is gone through for its functions when its first address comes. All entries are
// visited for that, also those without addresses, such as namespaces, that other entries lie in.
#pragma once

#include <elfutils/libdw.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "platform/symbols/elf_file.h"
#include "platform/symbols/package_file.h"

namespace symbols {

// Sorted ranges of addresses, each with a value. Ranges hardly ever overlap.
template <class VALUE>
class RANGE_INDEX {
  public:
    void add(std::uint64_t begin, std::uint64_t end, const VALUE& value) {
        ranges.push_back({begin, end, value});
    }
    void finish() {
        std::ranges::stable_sort(ranges, {}, &RANGE::begin);
        ranges.shrink_to_fit();
    }
    // Of the ranges around the address the one that begins last; null when there is none.
    VALUE* find(std::uint64_t address) {
        auto at = std::ranges::upper_bound(ranges, address, {}, &RANGE::begin);
        // How far to look back over shorter ranges that end in front of the address.
        for (int steps = 16; at != ranges.begin() && steps > 0; --steps) {
            --at;
            if (address < at->end) return &at->value;
        }
        return nullptr;
    }

  private:
    struct RANGE {
        std::uint64_t begin;
        std::uint64_t end;
        VALUE value;
    };
    std::vector<RANGE> ranges;
};

class UNIT {
  public:
    UNIT(const Dwarf_Die& frame, const Dwarf_Die& contents)
        : frame_die(frame), contents_die(contents), files_die(contents) {}

    // The contents lie in a package under that id. They are read when they are first asked for.
    void find_contents_in(PACKAGE_FILE& packed, std::uint64_t unit_id) {
        package = &packed;
        id = unit_id;
    }

    // The entry with the unit's ranges, lines and folder; the same as contents unless the unit is split.
    Dwarf_Die& frame() { return frame_die; }
    // The entry that holds the functions.
    Dwarf_Die& contents() {
        unpack();
        return contents_die;
    }
    // The entry whose table of files the calls within the contents refer to.
    Dwarf_Die& files() {
        unpack();
        return files_die;
    }
    // The entry of the function that holds the address; null when there is none.
    Dwarf_Die* find_function(std::uint64_t address);

  private:
    void index_functions(Dwarf_Die scope);
    void unpack();

    Dwarf_Die frame_die;
    Dwarf_Die contents_die;
    Dwarf_Die files_die;
    PACKAGE_FILE* package = nullptr;
    std::uint64_t id = 0;
    bool is_indexed = false;
    RANGE_INDEX<Dwarf_Die> functions;
};

class UNIT_INDEX {
  public:
    // `code` decides which addresses hold code, so that what the linker threw away is left out.
    UNIT_INDEX(Dwarf* dwarf, const ELF_FILE& code);
    UNIT* find(std::uint64_t address);
    // Every split unit was found.
    bool is_complete() const { return !lacks_units; }

  private:
    void find_in_package(Dwarf_CU* skeleton, const ELF_FILE& code, UNIT& unit);

    bool lacks_units = false;
    bool has_looked_for_package = false;
    std::unique_ptr<PACKAGE_FILE> package;
    std::deque<UNIT> units;
    RANGE_INDEX<UNIT*> ranges;
};

}  // namespace symbols
