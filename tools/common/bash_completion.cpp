#include <CLI/CLI.hpp>
#include <sstream>

#include "tools/common/cli_doc.h"
#include "tools/common/cli_table.h"

namespace cli_doc {
namespace {

std::string joined(const std::vector<std::string>& words, const char* separator) {
    return CLI::detail::join(words, separator);
}

// What follows an option that takes a value: a word of its set, a file, a folder, or nothing we could know.
std::string completion_of_value(const CLI::Option& option) {
    const std::vector<std::string> choices = value_choices(option);
    if (!choices.empty()) return "COMPREPLY=($(compgen -W '" + joined(choices, " ") + "' -- \"$cur\"))";
    const std::string value = value_name(option);
    if (value == "FILE") return "COMPREPLY=($(compgen -f -- \"$cur\"))";
    if (value == "DIR") return "COMPREPLY=($(compgen -d -- \"$cur\"))";
    return "COMPREPLY=()";
}

std::string quoted_pattern(const std::string& command, const std::string& option) {
    std::string pattern = "'";
    pattern.append(command).append(":").append(option).append("'");
    return pattern;
}

// One branch per option with a value; "command:option" keeps equal names of different commands apart.
void write_value_cases(std::ostream& out, const CLI::App& app, const std::string& command) {
    for (const CLI::Option* option : named_options(app)) {
        if (!takes_value(*option)) continue;
        std::vector<std::string> patterns;
        for (const std::string& name : spellings(*option)) patterns.push_back(quoted_pattern(command, name));
        out << "        " << joined(patterns, " | ") << ") " << completion_of_value(*option)
            << "; return ;;\n";
    }
}

std::string option_words(const CLI::App& app) {
    std::vector<std::string> words;
    for (const CLI::Option* option : named_options(app)) {
        for (const std::string& name : spellings(*option)) words.push_back(name);
    }
    return joined(words, " ");
}

void write_option_case(std::ostream& out, const CLI::App& app, const std::string& command) {
    out << "        '" << command << "') words='" << option_words(app) << "' ;;\n";
}

}  // namespace

std::string bash_completion(const CLI::App& app) {
    std::ostringstream out;
    const std::string& name = app.get_name();
    std::vector<std::string> command_names;
    for (const CLI::App* command : commands(app)) command_names.push_back(command->get_name());
    out << "# bash completion for " << name << "\n_" << name << "() {\n"
        << "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} command='' word words\n"
        << "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
        << "        case \" " << joined(command_names, " ") << " \" in\n"
        << "            *\" $word \"*) command=$word; break ;;\n        esac\n    done\n"
        << "    case \"$command:$prev\" in\n";
    write_value_cases(out, app, "");
    for (const CLI::App* command : commands(app)) write_value_cases(out, *command, command->get_name());
    out << "    esac\n    case \"$command\" in\n";
    for (const CLI::App* command : commands(app)) write_option_case(out, *command, command->get_name());
    out << "        *) words='" << option_words(app) << "' ;;\n    esac\n"
        << "    if [[ $cur == -* ]]; then\n        COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n";
    if (!command_names.empty()) {
        out << "    elif [[ -z $command ]]; then\n        COMPREPLY=($(compgen -W '"
            << joined(command_names, " ") << "' -- \"$cur\"))\n";
    }
    out << "    else\n        COMPREPLY=($(compgen -f -- \"$cur\"))\n    fi\n}\n"
        << "complete -o filenames -F _" << name << " " << name << "\n";
    return out.str();
}

}  // namespace cli_doc
