#pragma once

// The command line: one table for parsing, help, manual page and completion.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/cli_doc.h"

namespace CLI {
class App;
}  // namespace CLI

namespace memview {

// An amount as it is given on the command line: bytes ("64K", "1.5G") or a share of something ("10%").
struct Amount {
    double value = 0;
    bool percent = false;

    // The amount in bytes, a share being taken of `base`.
    double of(double base) const { return percent ? base * value / 100 : value; }
};

struct Options {
    std::string command;  // "show", "html", "diff", "check", "export"
    std::vector<std::string> folders;
    std::string before;  // the folders of a comparison
    std::string after;
    std::string process;
    bool keep_going = false;

    std::string sort = "peak";
    std::size_t top = 10;
    bool is_top_given = false;
    bool as_tree = false;
    std::string match;
    bool full_names = false;
    std::string output;

    Amount tolerance;
    bool as_html = false;
    bool as_json = false;

    std::optional<Amount> max_peak;
    std::optional<Amount> max_leaked;
    std::optional<Amount> max_site_growth;
    std::string baseline;
    std::string allow;
    int exit_code = 1;

    std::string format;
    std::string table = "sites";
};

// The parser, which fills `options`; both must live until it has parsed.
std::unique_ptr<CLI::App> make_app(Options& options);

// What the manual page says beside the options.
cli_doc::Page manual_page();

}  // namespace memview
