// ktl_memctl: asks a program that runs under ktl_memrun, and gives it orders.
#include <CLI/CLI.hpp>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/common/control_socket.h"
#include "tools/common/harmless.h"
#include "tools/memctl/answer_text.h"
#include "tools/memctl/options.h"

namespace memctl {

namespace {

constexpr int not_done = 1;
constexpr int trouble = 2;
// Beyond the time that the program has for its answer.
constexpr std::uint64_t launcher_ms = 600'000;

// Requests are text; a name that is none would arrive as another one.
void require_text(const nlohmann::json& request) try {
    request.dump();
} catch (const nlohmann::json::type_error&) {
    throw std::runtime_error("the mark's name is no text in UTF-8: give another one");
}

nlohmann::json ask(const Options& options) {
    const auto timeout_ms = static_cast<std::uint64_t>(options.timeout_s * 1000);
    const nlohmann::json request = {{"order", options.order},
                                    {"name", options.name},
                                    {"timeout_ms", timeout_ms},
                                    {"interrupt", options.interrupt}};
    require_text(request);
    LauncherConnection launcher(options.folder);
    return nlohmann::json::parse(launcher.ask(request.dump(), timeout_ms + launcher_ms));
}

int run(const Options& options) {
    const nlohmann::json answer = ask(options);
    const bool is_done = answer.value("ok", false);
    if (options.as_json)
        std::cout << answer.dump(2) << "\n";
    else if (is_done)
        std::cout << answer_text(options.order, answer);
    else
        std::cerr << "ktl_memctl: " << harmless(answer.value("error", "the launcher gave no reason")) << "\n";
    std::cout.flush();
    if (!std::cout) throw std::runtime_error("standard output cannot be written");
    return is_done ? 0 : not_done;
}

int parse_and_run(int argc, char** argv) {
    CLI::App app;
    Options options;
    declare_options(app, options);
    try {
        app.parse(argc, argv);
        complete_options(options);
        return run(options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : trouble;
    } catch (const std::exception& error) {
        std::cerr << "ktl_memctl: " << harmless(error.what()) << "\n";
        return trouble;
    }
}

}  // namespace

}  // namespace memctl

int main(int argc, char** argv) {
    return memctl::parse_and_run(argc, argv);
}
