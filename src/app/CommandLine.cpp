#include "app/CommandLine.h"

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "app/AppContext.h"
#include "app/CheckCommand.h"
#include "app/CommandError.h"
#include "app/DaemonClient.h"
#include "app/DaemonEndpoint.h"
#include "app/RetentionCommand.h"
#include "app/RewindCommand.h"
#include "app/SettingsCommand.h"
#include "app/RunCommand.h"
#include "app/DiffCommand.h"
#include "app/ExportCommand.h"
#include "app/FolderCommand.h"
#include "app/HistoryCommand.h"
#include "app/IndexCommand.h"
#include "app/ScanCommand.h"
#include "app/SearchCommand.h"
#include "app/StatusCommand.h"
#include "app/UiCommand.h"
#include "app/VersionsCommand.h"
#include "app/VosklinVersion.h"
#include "catalog/CatalogError.h"
#include "catalog/Database.h"
#include "platform/DiskFull.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"

namespace vosklin {

CommandLine::CommandLine(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

int CommandLine::run(int argc, char** argv) {
    CLI::App app{
        "Vosklin keeps a local version history of the folders you choose.\n"
        "Every time a file in a watched folder settles after a change, Vosklin keeps a\n"
        "copy of it (a reflink clone where the file system allows), so you can look back,\n"
        "compare and restore.\n\n"
        "Start with:  vosklin folder add ~/Documents   then   vosklin scan ~/Documents",
        "vosklin"};
    app.require_subcommand(1);
    app.fallthrough();  // global options such as --home may also follow the subcommand
    app.set_version_flag("--version", "vosklin " + std::string(vosklinVersion), "Print the version and exit");

    std::optional<std::string> home;
    app.add_option("--home", home,
                   "Keep everything (store, settings, folder list) under DIR instead of the usual places.\n"
                   "The environment variable VOSKLIN_HOME does the same.")
        ->option_text("DIR");

    bool json = false;
    auto addJson = [&](CLI::App* command) { command->add_flag("--json", json, "Print the result as JSON"); };

    auto status = app.add_subcommand("status", "Show the store, the watched folders and how much history they hold");
    addJson(status);
    status->footer("Exit status is 1 when the store exists but cannot be used (for example when a newer\n"
                   "Vosklin wrote it), 3 when the last scan of a folder could not read some of it.");

    std::optional<std::string> checkFolder;
    bool readData = false, rebuildCatalog = false, forceRebuild = false;
    auto check = app.add_subcommand("check", "Prove that every version is in the store as recorded, or rebuild a lost catalog");
    check->add_option("FOLDER", checkFolder, "Only this folder's versions (its path or id)");
    check->add_flag("--read-data", readData, "Also re-hash every payload against its digest (reads everything)");
    check->add_flag("--rebuild", rebuildCatalog, "Build a new catalog from the stored versions' sidecars");
    check->add_flag("--force", forceRebuild, "With --rebuild: rebuild even a catalog that still opens");
    addJson(check);
    check->footer("Exit status 0 when everything holds (slots no version refers to are only noted), 1 when a\n"
                  "problem was found. --rebuild sets the old catalog aside as index.sqlite.damaged-<time>.");

    auto folder = app.add_subcommand("folder", "Add, list, pause or remove watched folders");
    folder->require_subcommand(1);
    std::string folderPath, folderName, modeName, budgetText;
    bool manual = false, forget = false;
    auto folderAdd = folder->add_subcommand("add", "Start watching a folder");
    folderAdd->add_option("PATH", folderPath, "The folder to watch")->required();
    folderAdd->add_flag("--manual", manual, "Keep versions only when you take a snapshot, not on every change");
    addJson(folderAdd);
    folderAdd->footer("Refused: system locations, your whole home folder, Vosklin's own data, a folder inside\n"
                      "or around one already watched, and a folder on another file system than the store.");
    auto folderList = folder->add_subcommand("list", "List the watched folders");
    addJson(folderList);
    auto folderRemove = folder->add_subcommand("remove", "Stop watching a folder (its history is kept)");
    folderRemove->add_option("FOLDER", folderName, "The folder's path or id")->required();
    folderRemove->add_flag("--forget-history", forget, "Also delete every version kept of it");
    auto folderPause = folder->add_subcommand("pause", "Stop recording a folder for now");
    folderPause->add_option("FOLDER", folderName, "The folder's path or id")->required();
    auto folderResume = folder->add_subcommand("resume", "Record a paused folder again");
    folderResume->add_option("FOLDER", folderName, "The folder's path or id")->required();
    auto folderMode = folder->add_subcommand("mode", "Record every change (automatic) or only snapshots (manual)");
    folderMode->add_option("FOLDER", folderName, "The folder's path or id")->required();
    folderMode->add_option("MODE", modeName, "automatic or manual")->required();
    auto folderBudget = folder->add_subcommand("budget", "Limit how much history a folder may keep");
    folderBudget->add_option("FOLDER", folderName, "The folder's path or id")->required();
    folderBudget->add_option("BUDGET", budgetText, "automatic, unlimited, or a size such as 20GB")->required();

    auto scan = app.add_subcommand("scan", "Compare a folder with its history now and keep what changed");
    scan->add_option("FOLDER", folderName, "The folder's path or id")->required();
    addJson(scan);
    scan->footer("The first scan of a folder keeps every file (the baseline). Ctrl-C stops between two\n"
                 "files and keeps what was done. Exit status 0 when done, 1 when something could not be\n"
                 "captured or the scan was stopped, 3 when done but some folders or files could not be\n"
                 "read (they are named, and what they hold is neither recorded nor taken as deleted).");
    auto snapshot = app.add_subcommand("snapshot", "Keep a version of every file of a folder now, as one batch");
    snapshot->add_option("FOLDER", folderName, "The folder's path or id")->required();
    addJson(snapshot);
    snapshot->footer("Exit status as for scan: 3 when done but some folders or files could not be read.");

    std::string versionPath, versionID;
    std::optional<std::string> output;
    auto versions = app.add_subcommand("versions", "List the versions kept of a file, newest first");
    versions->add_option("PATH", versionPath, "The file (it may have been deleted since)")->required();
    addJson(versions);
    auto cat = app.add_subcommand("cat", "Write out the contents of one version");
    cat->add_option("VERSION", versionID, "The version number, as 'vosklin versions' shows it")->required();
    cat->add_option("-o,--output", output, "Write to FILE (or DIRECTORY for a package) instead of standard output")
        ->option_text("FILE");
    cat->footer("An existing FILE is never overwritten.");

    bool all = false;
    std::string instantText, momentText, nameText, otherVersion;
    auto history = app.add_subcommand("history", "A folder's history: sessions of moments, newest first");
    history->add_option("FOLDER", folderName, "The folder's path or id")->required();
    history->add_flag("--all", all, "List every change of every moment (long lists are folded otherwise)");
    addJson(history);
    history->footer("Each moment is shown with its instant in brackets: that is how 'name' and 'show' refer to it.");
    auto show = app.add_subcommand("show", "The files of a folder as they were at an instant");
    show->add_option("FOLDER", folderName, "The folder's path or id")->required();
    show->add_option("--at", instantText, "An instant as 'history' prints it, or a local date-time")
        ->required()
        ->option_text("INSTANT");
    addJson(show);
    auto name = app.add_subcommand("name", "Give a moment a name");
    name->add_option("FOLDER", folderName, "The folder's path or id")->required();
    name->add_option("MOMENT", momentText, "The moment's instant, as 'history' prints it")->required();
    name->add_option("NAME", nameText, "The name")->required();
    auto unname = app.add_subcommand("unname", "Take a moment's name away");
    unname->add_option("FOLDER", folderName, "The folder's path or id")->required();
    unname->add_option("MOMENT", momentText, "The moment's instant, as 'history' prints it")->required();
    auto star = app.add_subcommand("star", "Star a version (retention keeps starred versions)");
    star->add_option("VERSION", versionID, "The version number")->required();
    auto unstar = app.add_subcommand("unstar", "Take a version's star away");
    unstar->add_option("VERSION", versionID, "The version number")->required();
    auto diff = app.add_subcommand("diff", "Compare two versions, or a version and a file, line by line");
    diff->add_option("OLD", versionID, "A version number, or the path of a file")->required();
    diff->add_option("NEW", otherVersion, "A version number, or the path of a file")->required();
    addJson(diff);

    bool inPlace = false;
    std::optional<std::string> previous;
    auto restore = app.add_subcommand("restore", "Put a version back: as a copy beside the file, or in its place");
    restore->add_option("VERSION", versionID, "The version number, as 'vosklin versions' shows it");
    restore->add_flag("--in-place", inPlace, "Replace the file itself (what is there now is kept in history first)");
    restore->add_option("--previous", previous, "Put back the version before the current one of PATH, in place")
        ->option_text("PATH");
    restore->footer("A copy is named like 'Report (restored).txt'. Nothing is ever written outside the watched\n"
                    "folders, and an interrupted restore is cleaned up at the next start.");

    bool dryRun = false, yes = false;
    auto rewind = app.add_subcommand("rewind", "Put a whole folder back as it was at a moment (undoable)");
    rewind->add_option("FOLDER", folderName, "The folder's path or id")->required();
    rewind->add_option("MOMENT", momentText, "The moment's instant, as 'history' prints it, or a local date-time")
        ->required();
    rewind->add_flag("--dry-run", dryRun, "Only show what would change");
    rewind->add_flag("-y,--yes", yes, "Do not ask for confirmation");
    addJson(rewind);
    rewind->footer("Changed files are put back, deleted ones brought back, files added since removed. The folder\n"
                   "as it is now is kept on the timeline first: 'vosklin undo-rewind FOLDER' goes back to it.");
    auto undoRewind = app.add_subcommand("undo-rewind", "Undo the latest rewind of a folder");
    undoRewind->add_option("FOLDER", folderName, "The folder's path or id")->required();
    undoRewind->add_flag("--dry-run", dryRun, "Only show what would change");
    undoRewind->add_flag("-y,--yes", yes, "Do not ask for confirmation");
    addJson(undoRewind);

    auto prune = app.add_subcommand("prune", "Thin old history now and give back what is over each folder's budget");
    prune->add_flag("--dry-run", dryRun, "Only count what would go");
    addJson(prune);
    prune->footer("History is thinned with age: every version of the last day, one per hour for a week, one per\n"
                  "day for a month, one per week up to the horizon ('vosklin settings vosklin.historyHorizon'),\n"
                  "nothing older. Never removed: the newest 10 versions of a file, anything under an hour old,\n"
                  "starred and snapshot versions, named moments, the last copy of a deleted file. A folder over\n"
                  "its budget is thinned further, oldest first, but never below that. The daemon does this every\n"
                  "6 hours by itself.");

    std::vector<std::string> deleteVersions;
    std::optional<std::string> deleteAll;
    auto erase = app.add_subcommand("delete", "Delete versions, or a file's whole history, for good");
    erase->add_option("VERSION", deleteVersions, "The versions' ids (as 'vosklin versions' lists them)");
    erase->add_option("--all", deleteAll, "Delete every version of the file at PATH")->option_text("PATH");
    erase->add_flag("--dry-run", dryRun, "Only show what would be lost");
    erase->add_flag("-y,--yes", yes, "Do not ask for confirmation");
    addJson(erase);
    erase->footer("Shows what goes first (how many versions, the space given back, and whether starred versions,\n"
                  "undo copies, named moments or the last copy of a deleted file go with them) and asks on a\n"
                  "terminal. The file itself is never touched.");

    std::optional<std::string> usageFolder;
    auto usage = app.add_subcommand("usage", "How much disk each folder's history takes, against its budget");
    usage->add_option("FOLDER", usageFolder, "Only this folder (its path or id)");
    addJson(usage);

    std::string exportDestination;
    auto exportCommand = app.add_subcommand("export", "Write a folder as it was at a moment into a new folder");
    exportCommand->add_option("FOLDER", folderName, "The watched folder's path or id")->required();
    exportCommand->add_option("MOMENT", momentText, "The moment's instant, as 'history' prints it, or a local date-time")
        ->required();
    exportCommand->add_option("DEST", exportDestination, "A new folder to create (it must not exist)")->required();
    addJson(exportCommand);
    exportCommand->footer("Every file the folder held then, with its bytes of then, sharing blocks with the store\n"
                          "where the file system allows. Nothing is ever written over: DEST is created, and an\n"
                          "export that fails or is stopped with Ctrl-C removes what it wrote. The folder itself\n"
                          "is not touched.");

    std::vector<std::string> searchWords;
    std::optional<std::string> searchFolder;
    bool searchNames = false;
    auto search = app.add_subcommand("search", "Find words inside every version of your files, or a file by its name");
    search->add_option("TEXT", searchWords, "The words to find (all must match; the last may be the start of a word)")
        ->required();
    search->add_option("--folder", searchFolder, "Only this watched folder (its path or id)")->option_text("FOLDER");
    search->add_flag("--names", searchNames, "Search the paths the folder's files ever had instead of their text");
    addJson(search);
    search->footer("Case and accents do not matter: 'resume' finds 'R\u00e9sum\u00e9'. Matches are grouped by file, newest\n"
                   "first, at most 300 versions per folder; each line gives the version (for 'vosklin cat' or\n"
                   "'restore') and when it was kept. Texts are read in the background while the machine is idle;\n"
                   "'vosklin index' shows how far that is. Exit status 0 with matches, 1 without, 2 when the\n"
                   "text is too short to search.");

    bool indexStatus = false, indexClear = false, indexNow = false;
    auto index = app.add_subcommand("index", "Show how far the search index has read your history, clear it or catch up");
    auto indexActions = index->add_option_group("action");
    indexActions->add_flag("--status", indexStatus, "How many texts are read, without text, failed and waiting (the default)");
    indexActions->add_flag("--clear", indexClear, "Forget every text read: all are read again");
    indexActions->add_flag("--now", indexNow, "Read every text still waiting, now");
    indexActions->require_option(0, 1);
    addJson(index);
    index->footer("The text of PDF, Word (.docx and .doc), OpenDocument (.odt), RTF and plain-text versions is\n"
                  "read once per distinct content, in small batches at idle priority, never while the machine\n"
                  "saves power or runs hot. 'vosklin settings vosklin.contentSearchDisabled true' stops it.");

    std::optional<std::string> settingKey;
    std::vector<std::string> settingValues;
    bool resetSetting = false;
    auto settingsCommand = app.add_subcommand("settings", "Show or change Vosklin's settings");
    settingsCommand->add_option("KEY", settingKey, "A setting, such as vosklin.historyHorizon (or historyHorizon)");
    settingsCommand->add_option("VALUE", settingValues, "Its new value (a list takes several)");
    settingsCommand->add_flag("--reset", resetSetting, "Put the setting back to its default");
    addJson(settingsCommand);

    std::vector<std::string> runFolders;
    bool background = false;
    auto runDaemon = app.add_subcommand("run", "Record the watched folders live until stopped (the daemon)");
    runDaemon->add_option("FOLDER", runFolders, "Folders to start watching first (those already watched are kept)");
    runDaemon->add_flag("--background", background, "Started at login: log to the journal and print nothing");
    runDaemon->footer("While it runs, 'vosklin snapshot' and 'vosklin scan' go through it. Stop it with Ctrl-C\n"
                      "or SIGTERM: what has settled is captured first. One daemon per --home.");
    double settleTimeout = 120;
    auto settle = app.add_subcommand("settle", "Wait until the daemon has captured every change made so far");
    settle->add_option("--timeout", settleTimeout, "Give up after SECONDS (exit 1)")->option_text("SECONDS");
    bool noOpen = false;
    auto ui = app.add_subcommand("ui", "Open the window (starting the daemon if it is not running)");
    ui->add_flag("--no-open", noOpen, "Only print the one-time login address; do not open a browser");
    ui->footer("Prints the address of the window with a login code that works once, within two minutes.");
    std::string autostartState;
    auto autostart = app.add_subcommand("autostart", "Start recording at login (a systemd user unit), or not");
    autostart->add_option("STATE", autostartState, "on or off")->required();

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
        if (app.get_subcommands().empty() && !extras.empty())
            err_ << "vosklin: unknown command '" << extras.front() << "'\n";
        else
            err_ << "vosklin: " << e.what() << "\n";
        err_ << "Run 'vosklin --help' for the list of commands.\n";
        return 2;
    }

    try {
        // The daemon tells what it does; a command shows only what went wrong.
        SystemLogger logger(runDaemon->parsed() ? LogLevel::info : LogLevel::error);
        AppContext context(home, logger);
        if (runDaemon->parsed()) return RunCommand(context, out_, err_).run(runFolders, background);
        if (autostart->parsed()) return AutostartCommand(home, out_, err_).run(autostartState);
        if (ui->parsed()) return UiCommand(context, home, out_, err_).run(!noOpen);
        if (settle->parsed()) {
            auto daemon = DaemonEndpoint::find(context.fileSystem(), context.locator().containerRoot());
            if (!daemon) throw CommandError("No Vosklin daemon is running for this home ('vosklin run' starts one)");
            auto answer = DaemonClient(*daemon).call("settle", {{"timeout", settleTimeout}}, settleTimeout + 10);
            if (!answer.value("settled", false)) {
                err_ << "vosklin: changes were still settling after " << settleTimeout << " s\n";
                return 1;
            }
            return 0;
        }
        if (status->parsed()) return StatusCommand(context).run(json, out_, err_);
        if (check->parsed()) {
            CheckCommand checks(context, out_, err_);
            if (rebuildCatalog) {
                if (checkFolder || readData) {
                    err_ << "vosklin: --rebuild rebuilds the whole catalog; it takes no FOLDER or --read-data\n";
                    return 2;
                }
                return checks.rebuild(forceRebuild, json);
            }
            if (forceRebuild) {
                err_ << "vosklin: --force goes with --rebuild\n";
                return 2;
            }
            return checks.check(checkFolder, readData, json);
        }
        FolderCommand folders(context, out_);
        if (folderAdd->parsed()) return folders.add(folderPath, manual, json);
        if (folderList->parsed()) return folders.list(json);
        if (folderRemove->parsed()) return folders.remove(folderName, forget);
        if (folderPause->parsed()) return folders.setPaused(folderName, true);
        if (folderResume->parsed()) return folders.setPaused(folderName, false);
        if (folderMode->parsed()) return folders.setMode(folderName, modeName);
        if (folderBudget->parsed()) return folders.setBudget(folderName, budgetText);
        ScanCommand scans(context, out_, err_);
        if (scan->parsed()) return scans.scan(folderName, json);
        if (snapshot->parsed()) return scans.snapshot(folderName, json);
        VersionsCommand versionsCommand(context, out_);
        if (versions->parsed()) return versionsCommand.versions(versionPath, json);
        if (cat->parsed()) return versionsCommand.cat(versionID, output);
        HistoryCommand histories(context, out_);
        if (history->parsed()) return histories.history(folderName, json, all);
        if (show->parsed()) return histories.show(folderName, instantText, json);
        if (name->parsed()) return histories.name(folderName, momentText, nameText);
        if (unname->parsed()) return histories.name(folderName, momentText, std::nullopt);
        if (star->parsed()) return histories.star(versionID, true);
        if (unstar->parsed()) return histories.star(versionID, false);
        if (restore->parsed()) {
            if (!previous && versionID.empty()) throw CommandError("Give a VERSION, or --previous PATH");
            return histories.restore(versionID, inPlace, previous);
        }
        if (rewind->parsed()) return RewindCommand(context, out_, err_).rewind(folderName, momentText, dryRun, yes, json);
        if (undoRewind->parsed()) return RewindCommand(context, out_, err_).undo(folderName, dryRun, yes, json);
        if (diff->parsed()) return DiffCommand(context, out_, 1).run(versionID, otherVersion, json);
        RetentionCommand retention(context, out_, err_);
        if (prune->parsed()) return retention.prune(dryRun, json);
        if (erase->parsed()) return retention.erase(deleteVersions, deleteAll, dryRun, yes, json);
        if (usage->parsed()) return retention.usage(usageFolder, json);
        if (exportCommand->parsed())
            return ExportCommand(context, out_, err_).run(folderName, momentText, exportDestination, json);
        if (search->parsed()) {
            std::string text;
            for (const auto& word : searchWords) text += (text.empty() ? "" : " ") + word;
            return SearchCommand(context, out_, err_, 1).run(text, searchFolder, searchNames, json);
        }
        if (index->parsed())
            return IndexCommand(context, out_, err_)
                .run(indexClear ? IndexCommand::Action::clear
                     : indexNow ? IndexCommand::Action::now
                                : IndexCommand::Action::status,
                     json);
        if (settingsCommand->parsed()) return SettingsCommand(context, out_).run(settingKey, settingValues, resetSetting, json);
    } catch (const CatalogError& error) {
        if (error.kind() == CatalogError::Kind::storeIsNewerThanTheApp) {
            err_ << "vosklin: the store was written by a newer Vosklin (schema " << error.storeVersion()
                 << "; this Vosklin reads up to " << error.appVersion() << "). Update Vosklin to use it.\n";
            return 1;
        }
        err_ << "vosklin: " << error.what() << "\n";
        return 1;
    } catch (const DatabaseError& error) {
        // Damage found by a query rather than at open is the same news, with the same way out.
        if (Database::isDamageCode(error.code()))
            err_ << "vosklin: " << CatalogError::damaged(error.message()).what() << "\n";
        else
            err_ << "vosklin: " << error.what() << "\n";
        return 1;
    } catch (const FileSystemError& error) {
        if (isDiskFullError(error.errorNumber())) err_ << "vosklin: " << diskFullMessage(error.path()) << "\n";
        else err_ << "vosklin: " << error.what() << "\n";
        return 1;
    } catch (const std::exception& error) {
        // Whatever still holds a raw control byte (an argument echoed back, say) is quoted whole.
        err_ << "vosklin: " << DisplayName::of(error.what()) << "\n";
        return 1;
    }
    return 2;
}

}  // namespace vosklin
