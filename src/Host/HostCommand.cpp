#include "Host/HostCommand.h"

#include "Base/Error.h"
#include "Host/Init.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <iostream>

namespace veltry::HostCommand {

namespace {

constexpr int failure = 1;
constexpr int usageError = 2;

/// Declares `init` and binds its options.
void addInit(CLI::App& app, Init::Options& options)
{
    CLI::App* init = app.add_subcommand(
        "init", "Register a folder's git repository as a project, and print what an MCP client needs to attach to it");
    init->add_option("FOLDER", options.folder, "A folder of the repository; the project is the repository's top")
        ->capture_default_str();
    init->add_option("--name", options.name, "The project's name; the folder's own by default");
    init->add_option("--db", options.database, "The store to register it in, in place of the default one");
    init->footer("Example:\n  veltry init ~/code/digits --name Digits");
    init->callback([&options] { Init::run(options, std::cout, std::cerr); });
}

/// In one line, as every error is told.
std::string oneLine(std::string text)
{
    while (text.ends_with('\n'))
        text.pop_back();
    std::ranges::replace(text, '\n', ' ');
    return text;
}

} // namespace

int main(const std::vector<std::string>& arguments)
{
    std::signal(SIGPIPE, SIG_IGN); // `veltry ... | head` ends with a failed write
    CLI::App app("The host at the terminal for experiments that coding agents plan, run and compare.", "veltry");
    app.require_subcommand(1);
    Init::Options init;
    addInit(app, init);
    try {
        std::vector<std::string> words(arguments.rbegin(), arguments.rend()); // CLI11 takes them from the back
        if (!words.empty())
            words.pop_back();
        app.parse(words);
        return 0;
    } catch (const CLI::Success& asked) { // --help
        return app.exit(asked, std::cout, std::cerr);
    } catch (const CLI::ParseError& error) {
        std::cerr << "veltry: " << oneLine(error.what()) << " Try veltry --help.\n";
        return usageError;
    } catch (const std::exception& error) {
        std::cerr << "veltry: " << oneLine(describe(error)) << '\n';
        return failure;
    }
}

} // namespace veltry::HostCommand
