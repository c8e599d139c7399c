// Names of code that earlier runs found, on disk by build-id.
//
// One file for each build, replaced as a whole: readers need no lock, and writers take turns. A file that is
// damaged or of another version counts as missing. The folder's size is bounded; what was not used for
// longest goes first.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/symbols/name_table.h"

namespace memrun::names {

// A place in a file, and for which addresses there the names hold.
struct NamedPlace {
    std::uint64_t in_file = 0;
    symbols::BEHIND behind = symbols::BEHIND::anything;

    bool operator<(const NamedPlace& other) const {
        return in_file != other.in_file ? in_file < other.in_file : behind < other.behind;
    }
};
using CachedNames = std::map<NamedPlace, std::vector<symbols::FRAME>>;

class DiskCache {
  public:
    // The folder is made when something is stored.
    DiskCache(std::string folder, std::uint64_t most_bytes)
        : folder_(std::move(folder)), most_bytes_(most_bytes) {}

    // Nothing here throws but std::bad_alloc: a cache that cannot be read or written is none.
    CachedNames load(const std::string& build_id) const;
    // Adds the names to those that are there.
    void store(const std::string& build_id, const CachedNames& names) const;

  private:
    void bound() const;

    std::string folder_;
    std::uint64_t most_bytes_;
};

// `ktl_mem` below XDG_CACHE_HOME, else below ~/.cache; empty when there is no place.
std::string default_cache_folder();

}  // namespace memrun::names
