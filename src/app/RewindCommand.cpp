#include "app/RewindCommand.h"

#include "app/ApiHandlers.h"
#include "app/ByteCount.h"
#include "app/CommandError.h"
#include "app/CompareRequests.h"
#include "app/DaemonClient.h"
#include "app/DaemonEndpoint.h"
#include "app/TerminalOutput.h"
#include "app/UserInstant.h"
#include "history/FolderHistory.h"
#include "platform/DisplayName.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/StringTable.h"

namespace vosklin {

RewindCommand::RewindCommand(AppContext& context, std::ostream& out, std::ostream& err)
    : context_(context), out_(out), err_(err) {}

int RewindCommand::rewindTo(const WatchedFolder& folder, double target, bool dryRun, bool yes, bool json) {
    const RewindPlan plan = CompareRequests::rewindPlan(context_, folder, target);
    if (json && dryRun) {
        out_ << CompareRequests::planJson(plan, folder).dump(2) << "\n";
        return 0;
    }
    // Nothing is asked with --json: its output is for a program.
    if (json && !yes) throw CommandError("Add --yes to rewind with --json (nothing is asked then)");
    if (!json) {
        out_ << StringTable::text("rewind.sheet.subtitle %@ %@",
                                  {DisplayName::of(folder.path), formatLocalTime(target)})
             << "\n";
        printPlan(plan);
    }
    if (dryRun) return 0;
    if (!yes && !confirmOnTerminal(out_, StringTable::text("rewind.sheet.confirm"),
                                   "Add --yes to rewind without a terminal to confirm on")) {
        out_ << "Nothing was changed.\n";
        return 1;
    }
    // The exact instant, as a number: printed text would be rounded to the microsecond.
    // The plan shown is the plan run: the fingerprint lets the handler refuse one that changed since.
    nlohmann::json request = {{"target", target}, {"planFingerprint", plan.fingerprint()}};
    putPath(request, "folder", folder.path);
    nlohmann::json report;
    if (auto daemon = DaemonEndpoint::find(context_.fileSystem(), context_.locator().containerRoot()))
        report = DaemonClient(*daemon).call("rewind", request);
    else
        report = ApiHandlers(context_, nullptr).call("rewind", request);
    const auto failed = report.value("failedPaths", nlohmann::json::array());
    if (json) {
        out_ << report.dump(2) << "\n";
        return failed.empty() ? 0 : 1;
    }
    const long long changes = report.value("revertedCount", 0ll) + report.value("restoredCount", 0ll) +
                              report.value("removedCount", 0ll);
    out_ << StringTable::count("rewind.banner.done %lld %@", changes, {formatLocalTime(target)}) << "\n";
    if (!failed.empty()) {
        err_ << "vosklin: " << StringTable::count("rewind.banner.failed %lld", static_cast<long long>(failed.size()))
             << "\n";
        return 1;
    }
    out_ << "Undo it with: vosklin undo-rewind " << DisplayName::of(folder.path) << "\n";
    return 0;
}

void RewindCommand::printPlan(const RewindPlan& plan) {
    using Action = RewindPlan::Step::Action;
    for (auto [action, key] : {std::pair{Action::revert, "rewind.sheet.revert %lld"},
                               {Action::restoreDeleted, "rewind.sheet.restore %lld"},
                               {Action::removeAdded, "rewind.sheet.remove %lld"}})
        if (auto count = plan.count(action)) out_ << "  " << StringTable::count(key, count) << "\n";
    for (const auto& step : plan.steps) {
        const char* label = step.action == Action::revert ? "revert " : step.action == Action::restoreDeleted ? "restore" : "remove ";
        out_ << "    " << label << "  " << DisplayName::of(step.relativePath) << "\n";
    }
    out_ << StringTable::text("rewind.sheet.reversible") << "\n";
}

int RewindCommand::rewind(const std::string& folderName, const std::string& moment, bool dryRun, bool yes,
                          bool json) {
    WatchedFolder folder = context_.folders().require(folderName);
    const auto reading = readUserInstant(moment);
    if (!reading.instant) throw CommandError(userInstantRefusal(moment, reading));
    auto target = reading.instant;
    if (!context_.storeExists()) throw CommandError("Vosklin has no history of " + DisplayName::of(folder.path));
    // As printed, an instant is rounded to the microsecond: read the state it stands for.
    target = FolderHistory::load(context_.catalog(), folder.id).stateInstant(*target);
    return rewindTo(folder, *target, dryRun, yes, json);
}

int RewindCommand::undo(const std::string& folderName, bool dryRun, bool yes, bool json) {
    WatchedFolder folder = context_.folders().require(folderName);
    if (context_.storeExists())
        if (auto before = RewindService::undoTarget(context_.catalog().marks(folder.id)))
            return rewindTo(folder, *before, dryRun, yes, json);
    throw CommandError(DisplayName::of(folder.path) + " has not been rewound: there is nothing to undo");
}

}  // namespace vosklin
