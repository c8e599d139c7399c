// The names of one module's code: from the disk cache, else from its files.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/symbols/module_symbols.h"
#include "platform/symbols/name_messages.h"
#include "platform/symbols/name_table.h"
#include "tools/memrun/names/disk_cache.h"
#include "tools/memrun/names/work_table.h"

namespace memrun::names {

class ModuleNames {
  public:
    // Reads nothing yet, but for the cache; `cache` may be null.
    ModuleNames(const symbols::NAME_QUESTION& question, pid_t asker, WorkTable& work, DiskCache* cache);

    // From here on every name is entered there, too; those of the cache at once, while half of it is free.
    void share_in(symbols::NAME_TABLE_WRITER& table);

    std::vector<symbols::FRAME> find(const symbols::CODE_ADDRESS& address);
    const std::string& path() const { return path_; }

    // Hands what is new to the cache.
    void save();

  private:
    void read_files();
    CachedNames::const_iterator find_known(const symbols::CODE_ADDRESS& address) const;
    void share(const CachedNames::value_type& named);

    std::string path_;
    std::string build_id_;
    std::string asker_path_;  // the same file as the asker sees it
    std::string name_in_work_;
    WorkTable& work_;
    DiskCache* cache_;
    CachedNames cached_;
    symbols::NAME_TABLE_WRITER* table_ = nullptr;
    std::uint32_t number_in_table_ = 0;
    bool is_new_ = false;
    bool is_read_ = false;
    std::unique_ptr<symbols::MODULE_SYMBOLS> symbols_;
};

}  // namespace memrun::names
