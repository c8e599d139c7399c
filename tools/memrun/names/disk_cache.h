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

#include "platform/symbol_services.h"

namespace memrun::names {

struct ByAddress {
    bool operator()(const symbols::CODE_ADDRESS& a, const symbols::CODE_ADDRESS& b) const {
        return a.in_file != b.in_file ? a.in_file < b.in_file : a.is_behind_call < b.is_behind_call;
    }
};
using CachedNames = std::map<symbols::CODE_ADDRESS, std::vector<symbols::FRAME>, ByAddress>;

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
