#include "tools/memrun/names/module_names.h"

namespace memrun::names {

using symbols::BEHIND;
using symbols::MODULE_SYMBOLS;

namespace {

// The same file by way of the process: it may have another root, and the program's file may be gone from its
// folder.
std::string path_through(pid_t process, const symbols::NAME_QUESTION& question) {
    const std::string folder = "/proc/" + std::to_string(process);
    return question.is_executable ? folder + "/exe" : folder + "/root" + question.path;
}

bool names_anything(const MODULE_SYMBOLS& symbols) {
    return symbols.has_units() || symbols.has_functions();
}

}  // namespace

ModuleNames::ModuleNames(const symbols::NAME_QUESTION& question, pid_t asker, WorkTable& work,
                         DiskCache* cache)
    : path_(question.path),
      build_id_(question.build_id),
      asker_path_(path_through(asker, question)),
      name_in_work_(path_ + build_id_),
      work_(work),
      cache_(build_id_.empty() ? nullptr : cache) {
    if (cache_ != nullptr) cached_ = cache_->load(build_id_);
}

// A file without a build-id may be replaced by another one of its name.
void ModuleNames::share_in(symbols::NAME_TABLE_WRITER& table) {
    if (build_id_.empty()) return;
    table_ = &table;
    number_in_table_ = table.enter_module(path_, build_id_);
    for (const auto& named : cached_) {
        if (table.is_half_full()) return;
        share(named);
    }
}

void ModuleNames::share(const CachedNames::value_type& named) {
    const auto& [place, levels] = named;
    if (table_ != nullptr) table_->enter(number_in_table_, place.in_file, place.behind, levels);
}

CachedNames::const_iterator ModuleNames::find_known(const symbols::CODE_ADDRESS& address) const {
    const auto known = cached_.find({address.in_file, BEHIND::anything});
    if (known != cached_.end()) return known;
    return cached_.find({address.in_file, address.is_behind_call ? BEHIND::call : BEHIND::no_call});
}

std::vector<symbols::FRAME> ModuleNames::find(const symbols::CODE_ADDRESS& address) {
    const auto known = find_known(address);
    if (known != cached_.end()) {
        share(*known);
        return known->second;
    }
    work_.begin(name_in_work_);
    read_files();
    std::vector<symbols::FRAME> levels;
    if (symbols_ != nullptr) levels = symbols_->find_frames(symbols_->instruction(address));
    BEHIND behind = BEHIND::anything;
    if (symbols_ != nullptr && symbols_->is_function_start(address.in_file))
        behind = address.is_behind_call ? BEHIND::call : BEHIND::no_call;
    work_.end();
    is_new_ = true;
    const auto named = cached_.insert_or_assign({address.in_file, behind}, std::move(levels)).first;
    share(*named);
    return named->second;
}

void ModuleNames::read_files() {
    if (is_read_) return;
    is_read_ = true;
    const Trust trust = work_.trust_in(name_in_work_);
    if (trust == Trust::nothing) return;
    const auto detail = trust == Trust::everything ? symbols::DETAIL::ALL : symbols::DETAIL::FUNCTIONS;
    symbols_ = std::make_unique<MODULE_SYMBOLS>(path_, build_id_, detail);
    if (!names_anything(*symbols_))
        symbols_ = std::make_unique<MODULE_SYMBOLS>(asker_path_, build_id_, detail);
}

void ModuleNames::save() {
    if (cache_ == nullptr || !is_new_ || symbols_ == nullptr || !symbols_->is_complete()) return;
    cache_->store(build_id_, cached_);
    is_new_ = false;
}

}  // namespace memrun::names
