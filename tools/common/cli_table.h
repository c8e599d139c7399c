#pragma once

// The option table of a CLI::App as the generators of documents walk it.

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace cli_doc {

// The options of an app with those of its option groups, in the order of declaration; hidden ones are left
// out.
std::vector<const CLI::Option*> named_options(const CLI::App& app);
std::vector<const CLI::Option*> positionals(const CLI::App& app);

// The commands of an app, without its option groups.
std::vector<const CLI::App*> commands(const CLI::App& app);

bool takes_value(const CLI::Option& option);
std::vector<std::string> spellings(const CLI::Option& option);

// The value as the help names it ("FILE"), and the set that it must come from; either may be empty.
std::string value_name(const CLI::Option& option);
std::vector<std::string> value_choices(const CLI::Option& option);

}  // namespace cli_doc
