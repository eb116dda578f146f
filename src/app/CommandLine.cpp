#include "app/CommandLine.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "app/StatusCommand.h"
#include "app/VosklinVersion.h"
#include "platform/PosixFileSystem.h"
#include "store/StoreLocator.h"
#include "store/StoreLocatorError.h"

namespace vosklin {

CommandLine::CommandLine(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

int CommandLine::run(int argc, char** argv) {
    CLI::App app{
        "Vosklin keeps a local version history of the folders you choose.\n"
        "Every time a file in a watched folder settles after a change, Vosklin keeps a\n"
        "copy of it (a reflink clone where the file system allows), so you can look back,\n"
        "compare and restore.",
        "vosklin"};
    app.require_subcommand(1);
    app.fallthrough();  // global options such as --home may also follow the subcommand
    app.set_version_flag("--version", "vosklin " + std::string(vosklinVersion), "Print the version and exit");

    std::optional<std::string> home;
    app.add_option("--home", home,
                   "Keep everything (store, settings, folder list) under DIR instead of the usual places.\n"
                   "The environment variable VOSKLIN_HOME does the same.")
        ->option_text("DIR");

    bool statusJson = false;
    auto status = app.add_subcommand("status", "Show where the store is and how much history it holds");
    status->add_flag("--json", statusJson, "Print the report as JSON");
    status->footer("Exit status is 1 when the store exists but cannot be used (for example when a newer\n"
                   "Vosklin wrote it).");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e, out_, err_);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e, out_, err_);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e, out_, err_);
    } catch (const CLI::ParseError& e) {
        auto extras = app.remaining();
        if (!app.get_subcommands().size() && !extras.empty())
            err_ << "vosklin: unknown command '" << extras.front() << "'\n";
        else
            err_ << "vosklin: " << e.what() << "\n";
        err_ << "Run 'vosklin --help' for the list of commands.\n";
        return 2;
    }

    try {
        PosixFileSystem fileSystem;
        StoreLocator locator = StoreLocator::fromEnvironment(home);
        if (status->parsed()) return StatusCommand(locator, fileSystem).run(statusJson, out_, err_);
    } catch (const std::exception& error) {
        err_ << "vosklin: " << error.what() << "\n";
        return 1;
    }
    return 2;
}

}  // namespace vosklin
