#include "app/RetentionCommand.h"

#include <unistd.h>

#include <cstdio>

#include "app/ApiHandlers.h"
#include "app/ByteCount.h"
#include "app/CommandError.h"
#include "app/DaemonClient.h"
#include "app/DaemonEndpoint.h"
#include "app/FolderRequests.h"
#include "app/TerminalOutput.h"
#include "platform/DisplayName.h"
#include "platform/PathJson.h"
#include "platform/StringTable.h"
#include "retention/StorageBudget.h"

namespace vosklin {

namespace {

std::string folderPathOf(const nlohmann::json& entry) { return DisplayName::of(getPath(entry, "path")); }

std::string budgetText(const nlohmann::json& entry) {
    const std::string budget = entry.value("budget", "automatic");
    if (budget == "unlimited") return StringTable::text("settings.storage.budget.unlimited");
    if (entry["budgetBytes"].is_null()) return budget;
    const std::string bytes = formatByteCount(entry["budgetBytes"].get<std::int64_t>());
    return budget == "automatic" ? StringTable::text("settings.storage.budget.automatic %@", {bytes}) : bytes;
}

}  // namespace

RetentionCommand::RetentionCommand(AppContext& context, std::ostream& out, std::ostream& err)
    : context_(context), out_(out), err_(err) {}

nlohmann::json RetentionCommand::call(const std::string& name, const nlohmann::json& request) {
    if (auto daemon = DaemonEndpoint::find(context_.fileSystem(), context_.locator().containerRoot()))
        return DaemonClient(*daemon).call(name, request, 24 * 3600);
    return ApiHandlers(context_, nullptr).call(name, request);
}

int RetentionCommand::prune(bool dryRun, bool json) {
    const auto report = call("prune", {{"dryRun", dryRun}});
    if (json) {
        out_ << report.dump(2) << "\n";
        return report.value("ran", false) || !context_.storeExists() ? 0 : 1;
    }
    if (!report.value("ran", false)) {
        if (!context_.storeExists()) {
            out_ << "Vosklin has no history yet: nothing to prune.\n";
            return 0;
        }
        err_ << "vosklin: a pass is already running; try again when it has finished\n";
        return 1;
    }
    const auto count = report.value("prunedCount", 0ll);
    const std::string freed = formatByteCount(report.value("freedBytes", 0ll));
    out_ << (dryRun ? "Would prune " : "Pruned ") << StringTable::count("history.delete.versions %lld", count)
         << (dryRun ? ", freeing " : ", freed ") << freed << "\n";
    if (const auto orphans = report.value("orphanSlotCount", 0ll) + report.value("stagingItemCount", 0ll))
        out_ << (dryRun ? "Would sweep " : "Swept ") << orphans << (orphans == 1 ? " orphaned item (" : " orphaned items (")
             << formatByteCount(report.value("orphanBytes", 0ll)) << ")\n";
    int status = 0;
    for (const auto& folder : report["folders"]) {
        if (folder.contains("failure")) {
            err_ << "vosklin: " << folderPathOf(folder) << " could not be pruned: "
                 << DisplayName::of(folder["failure"].get<std::string>()) << "\n";
            status = 1;
        } else if (folder.value("overBudget", false)) {
            out_ << folderPathOf(folder) << " is still over its budget (" << formatByteCount(folder["logicalBytes"].get<std::int64_t>())
                 << " of " << budgetText(folder) << "). "
                 << StringTable::text("settings.storage.overBudget") << "\n";
        }
    }
    return status;
}

void RetentionCommand::printSheet(const nlohmann::json& preview) {
    const auto count = preview["versionCount"].get<long long>();
    out_ << (preview["scope"] == "file" ? StringTable::text("history.delete.sheet.title.file")
                                        : StringTable::count("history.delete.sheet.title.version", count))
         << "\n";
    out_ << "  "
         << StringTable::text("history.delete.sheet.amount %@ %@",
                              {StringTable::count("history.delete.versions %lld", count),
                               formatByteCount(preview["reclaimableBytes"].get<std::int64_t>())})
         << "\n";
    for (auto [flag, key] : {std::pair{"includesUndoCopy", "history.delete.sheet.warn.undo"},
                             {"includesStarred", "history.delete.sheet.warn.starred"},
                             {"erasesWholeLiveFile", "history.delete.sheet.warn.liveFile"},
                             {"erasesLastCopyOfDeletedFile", "history.delete.sheet.warn.lastCopy"}})
        if (preview.value(flag, false)) out_ << "  ! " << StringTable::text(key) << "\n";
    const auto& names = preview["vanishingMomentNames"];
    if (names.size() == 1) {
        out_ << "  ! "
             << StringTable::text("history.delete.sheet.warn.namedMoment %@",
                                  {DisplayName::of(names[0].get<std::string>())})
             << "\n";
    } else if (names.size() > 1) {
        std::string list;
        for (const auto& name : names) list += (list.empty() ? "" : ", ") + DisplayName::of(name.get<std::string>());
        out_ << "  ! "
             << StringTable::count("history.delete.sheet.warn.namedMoments %lld %@", (long long)names.size(), {list})
             << "\n";
    }
    out_ << "  " << StringTable::text("history.delete.sheet.irreversible") << " "
         << StringTable::text("history.delete.sheet.fileSafe") << "\n";
}

int RetentionCommand::erase(const std::vector<std::string>& versionIDs,
                            const std::optional<std::string>& wholeHistoryOf, bool dryRun, bool yes, bool json) {
    if (!versionIDs.empty() == wholeHistoryOf.has_value())
        throw CommandError("Give the versions to delete, or --all PATH for a file's whole history (not both)");
    if (!context_.storeExists()) throw CommandError("Vosklin has no history yet");
    nlohmann::json request = {{"dryRun", true}};
    if (wholeHistoryOf) {
        putPath(request, "path", *wholeHistoryOf);
    } else {
        request["versions"] = nlohmann::json::array();
        for (const auto& id : versionIDs) request["versions"].push_back(id);
    }
    auto preview = call("delete", request);
    if (dryRun) {
        if (json) out_ << preview.dump(2) << "\n";
        else printSheet(preview);
        return 0;
    }
    if (!yes) {
        if (::isatty(0) == 1) printSheet(preview);
        if (!confirmOnTerminal(out_, StringTable::text("history.delete.sheet.confirm"),
                               "Add --yes to delete without a terminal to confirm on")) {
            out_ << "Nothing was deleted.\n";
            return 1;
        }
    }
    // Exactly the versions shown: one captured since the preview is not taken with them.
    nlohmann::json erase = {{"dryRun", false}, {"versions", preview["versionIDs"]}};
    auto result = call("delete", erase);
    result["scope"] = preview["scope"];
    if (json) {
        out_ << result.dump(2) << "\n";
        return 0;
    }
    const auto deleted = result.value("deletedCount", 0ll);
    out_ << "Deleted " << StringTable::count("history.delete.versions %lld", deleted) << ", giving back "
         << formatByteCount(preview["reclaimableBytes"].get<std::int64_t>()) << "\n";
    return 0;
}

int RetentionCommand::usage(const std::optional<std::string>& folderName, bool json) {
    std::vector<WatchedFolder> folders;
    if (folderName) folders.push_back(FolderRequests::requireFolder(context_, *folderName));
    else folders = context_.folders().folders();
    const auto report = FolderRequests::usage(context_, folders);
    if (json) {
        out_ << report.dump(2) << "\n";
        return 0;
    }
    const auto& rows = report["folders"];
    const auto& total = report["total"];
    char line[512];
    std::snprintf(line, sizeof line, "%-10s %10s %10s %9s  %-22s %s\n", "ON DISK", "LOGICAL", "VERSIONS", "", "BUDGET",
                  "FOLDER");
    out_ << line;
    for (const auto& row : rows) {
        std::snprintf(line, sizeof line, "%-10s %10s %10lld %9s  %-22s %s\n",
                      formatByteCount(row["privateBytes"].get<std::int64_t>()).c_str(), formatByteCount(row["logicalBytes"].get<std::int64_t>()).c_str(),
                      row["versionCount"].get<long long>(), row["overBudget"].get<bool>() ? "OVER" : "",
                      budgetText(row).c_str(), folderPathOf(row).c_str());
        out_ << line;
    }
    std::snprintf(line, sizeof line, "%-10s %10s %10lld %9s  %-22s %s\n", formatByteCount(total["privateBytes"].get<std::int64_t>()).c_str(),
                  formatByteCount(total["logicalBytes"].get<std::int64_t>()).c_str(), total["versionCount"].get<long long>(), "", "",
                  "total");
    out_ << line;
    out_ << "ON DISK counts what no other file shares (a reflinked version that still shares its blocks with the\n"
            "live file takes almost nothing); a budget is compared with LOGICAL, the versions' own sizes.\n";
    return 0;
}

}  // namespace vosklin
