#include <CLI/CLI.hpp>
#include <cctype>
#include <sstream>

#include "tools/common/cli_doc.h"
#include "tools/common/cli_table.h"

namespace cli_doc {
namespace {

// Text as roff takes it: a dash that can be copied, no escapes, no request at the start of a line.
std::string roff(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool line_start = i == 0 || text[i - 1] == '\n';
        if (line_start && (c == '.' || c == '\'')) out += "\\&";
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            out += c;
        }
    }
    return out;
}

std::string upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

void write_option(std::ostream& out, const CLI::Option& option) {
    out << ".TP\n";
    const std::string value = value_name(option);
    std::string sep;
    for (const std::string& name : spellings(option)) {
        out << sep << "\\fB" << roff(name) << "\\fR";
        sep = ", ";
    }
    if (option.get_positional()) out << "\\fI" << roff(option.get_name(true)) << "\\fR";
    if (!value.empty() && !option.get_positional()) out << " \\fI" << roff(value) << "\\fR";
    out << "\n" << roff(option.get_description()) << ".";
    const std::vector<std::string> choices = value_choices(option);
    if (!choices.empty()) out << "\nOne of " << roff(CLI::detail::join(choices, ", ")) << ".";
    if (!option.get_default_str().empty()) out << "\nDefault: " << roff(option.get_default_str()) << ".";
    out << "\n";
}

void write_options(std::ostream& out, const CLI::App& app) {
    for (const CLI::Option* option : positionals(app)) write_option(out, *option);
    for (const CLI::Option* option : named_options(app)) write_option(out, *option);
}

void write_section(std::ostream& out, const Section& section) {
    out << ".SH " << roff(section.title) << "\n";
    std::istringstream lines(section.text);
    bool literal = false;
    for (std::string line; std::getline(lines, line);) {
        const bool is_literal = line.rfind("    ", 0) == 0;
        if (is_literal != literal) out << (is_literal ? ".PP\n.nf\n" : ".fi\n.PP\n");
        literal = is_literal;
        out << (line.empty() ? std::string(".PP") : roff(line)) << "\n";
    }
    if (literal) out << ".fi\n";
}

}  // namespace

std::string man_page(const CLI::App& app, const Page& page) {
    std::ostringstream out;
    const std::string& name = app.get_name();
    out << ".TH " << roff(upper(name)) << " 1 \"\" \"" << roff(name + " " + page.version)
        << "\" \"User Commands\"\n"
        << ".SH NAME\n"
        << roff(name) << " \\- " << roff(page.summary) << "\n.SH SYNOPSIS\n";
    for (const std::string& usage : page.synopsis)
        out << ".B " << roff(name) << "\n" << roff(usage) << "\n.br\n";
    out << ".SH DESCRIPTION\n" << roff(app.get_description()) << "\n";
    const std::vector<const CLI::App*> subcommands = commands(app);
    if (!subcommands.empty()) out << ".SH COMMANDS\n";
    for (const CLI::App* command : subcommands) {
        out << ".SS " << roff(command->get_name()) << "\n" << roff(command->get_description()) << ".\n";
        write_options(out, *command);
    }
    out << ".SH OPTIONS\n";
    write_options(out, app);
    for (const Section& section : page.sections) write_section(out, section);
    return out.str();
}

}  // namespace cli_doc
