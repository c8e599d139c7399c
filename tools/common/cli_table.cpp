#include "tools/common/cli_table.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace cli_doc {
namespace {

std::vector<const CLI::App*> children(const CLI::App& app) {
    return app.get_subcommands(std::function<bool(const CLI::App*)>{});
}

void collect(const CLI::App& app, bool want_positional, std::vector<const CLI::Option*>& into) {
    for (const CLI::Option* option : app.get_options({})) {
        if (option->get_group().empty()) continue;
        if (option->get_positional() == want_positional) into.push_back(option);
    }
    for (const CLI::App* child : children(app)) {
        if (child->get_name().empty()) collect(*child, want_positional, into);
    }
}

}  // namespace

std::vector<const CLI::Option*> named_options(const CLI::App& app) {
    std::vector<const CLI::Option*> found;
    collect(app, false, found);
    return found;
}

std::vector<const CLI::Option*> positionals(const CLI::App& app) {
    std::vector<const CLI::Option*> found;
    collect(app, true, found);
    return found;
}

std::vector<const CLI::App*> commands(const CLI::App& app) {
    std::vector<const CLI::App*> found = children(app);
    std::erase_if(found, [](const CLI::App* child) { return child->get_name().empty(); });
    return found;
}

bool takes_value(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

std::vector<std::string> spellings(const CLI::Option& option) {
    std::vector<std::string> all;
    for (const std::string& name : option.get_snames()) all.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) all.push_back("--" + name);
    return all;
}

// A type's text is its name and, behind a colon, what its checks say of themselves; a set is "{a,b,c}".
std::string value_name(const CLI::Option& option) {
    if (!takes_value(option)) return {};
    const std::string type = option.get_type_name();
    return type.substr(0, type.find(':'));
}

std::vector<std::string> value_choices(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const std::size_t open = type.find('{');
    const std::size_t close = type.find('}', open == std::string::npos ? 0 : open);
    if (open == std::string::npos || close == std::string::npos) return {};
    return CLI::detail::split(type.substr(open + 1, close - open - 1), ',');
}

}  // namespace cli_doc
