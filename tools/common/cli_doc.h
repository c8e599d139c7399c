#pragma once

// The documents of a command-line tool, made from the same option table that parses its command line, so that
// `--help`, the manual page and the shell's completion can never differ.

#include <string>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace cli_doc {

// A piece of the manual page that the option table cannot know: "EXIT STATUS", "FILES", "EXAMPLES", ...
// Blank lines part paragraphs; a line that begins with four blanks is shown as it stands.
struct Section {
    std::string title;
    std::string text;
};

struct Page {
    std::string version;
    std::string summary;                // one line, without the tool's name and without a full stop
    std::vector<std::string> synopsis;  // the ways to call it, without the tool's name
    std::vector<Section> sections;
};

// The manual page of section 1, in roff. The app's name is the tool's.
std::string man_page(const CLI::App& app, const Page& page);

// The completion for bash. Options whose values are one of a set complete to that set, values of type "FILE"
// to files, "DIR" and "DIR:..." to folders.
std::string bash_completion(const CLI::App& app);

// The whole of a small generator program: writes NAME.1 and NAME (the completion) into the folder argv[1].
// Gives the exit status, with a message on standard error when it is not 0.
int generate(const CLI::App& app, const Page& page, int argc, char** argv);

}  // namespace cli_doc
