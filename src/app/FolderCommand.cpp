#include "app/FolderCommand.h"

#include "app/ByteCount.h"
#include "app/CommandError.h"
#include "app/JsonRecords.h"
#include "bridge/FolderAccess.h"
#include "bridge/FolderAdmission.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"

namespace vosklin {

FolderCommand::FolderCommand(AppContext& context, std::ostream& out) : context_(context), out_(out) {}

int FolderCommand::add(const std::string& path, bool manual, bool json) {
    FolderAdmission admission(context_.fileSystem(), context_.locator(), context_.homeDirectory());
    WatchedFolder folder = context_.folders().append(admission.admit(
        path, manual ? CaptureMode::manual : CaptureMode::automatic, context_.folders().folders()));
    if (json) {
        out_ << toJson(folder).dump(2) << "\n";
        return 0;
    }
    out_ << "Watching " << DisplayName::of(folder.path) << "\n"
         << "  id:   " << folder.id << "\n"
         << "  mode: " << toString(folder.mode)
         << (manual ? " (versions only when you take a snapshot)" : " (every change is kept)") << "\n"
         << "Run 'vosklin scan " << DisplayName::of(folder.path)
         << "' to record its current state now, or 'vosklin run' to keep recording.\n";
    return 0;
}

int FolderCommand::list(bool json) {
    auto folders = context_.folders().folders();
    const bool store = context_.storeExists();
    FolderAccess access(context_.fileSystem());
    nlohmann::json array = nlohmann::json::array();
    if (!json && folders.empty()) {
        out_ << "No folders are watched. Add one with 'vosklin folder add PATH'.\n";
        return 0;
    }
    for (const auto& folder : folders) {
        auto reach = access.check(folder);
        std::int64_t versions = 0, bytes = 0;
        if (store) {
            versions = context_.readCatalog().folderVersionCount(folder.id);
            bytes = context_.readCatalog().folderBytes(folder.id);
        }
        if (json) {
            auto entry = toJson(folder);
            entry["reachable"] = reach.reachable;
            if (!reach.reachable) entry["unreachableReason"] = reach.reason;
            entry["versions"] = versions;
            entry["logicalBytes"] = bytes;
            array.push_back(entry);
            continue;
        }
        std::string state = !reach.reachable ? "unreachable: " + reach.reason
                            : folder.isPaused ? "paused"
                                              : std::string(toString(folder.mode));
        out_ << DisplayName::of(folder.path) << "\n"
             << "  id:       " << folder.id << "\n"
             << "  state:    " << state << "\n"
             << "  history:  " << versions << " versions, " << formatByteCount(bytes) << "\n";
    }
    if (json) out_ << array.dump(2) << "\n";
    return 0;
}

int FolderCommand::remove(const std::string& folderName, bool forgetHistory) {
    WatchedFolder folder = context_.folders().require(folderName);
    std::size_t removedSlots = 0;
    if (forgetHistory && context_.storeExists()) {
        // History first: if this stops half-way, the folder is still listed and can be removed again.
        auto slots = context_.catalog().forgetFolder(folder.id);
        context_.catalog().makeDurable();  // no row may come back after a power cut without its payload
        for (const auto& slot : slots) {
            try {
                context_.layout().removeSlot(slot);
                ++removedSlots;
            } catch (const FileSystemError& error) {
                context_.logger().error("Could not remove a forgotten version's payload: " + std::string(error.what()));
            }
        }
    }
    context_.folders().remove(folder.id, !forgetHistory);
    out_ << "Stopped watching " << DisplayName::of(folder.path) << "\n";
    if (forgetHistory) out_ << "Forgot its history (" << removedSlots << " versions removed from the store).\n";
    else out_ << "Its history is kept; 'vosklin folder add' brings it back.\n";
    return 0;
}

int FolderCommand::setPaused(const std::string& folderName, bool paused) {
    WatchedFolder folder = context_.folders().require(folderName);
    folder.isPaused = paused;
    context_.folders().replace(folder);
    out_ << (paused ? "Paused " : "Resumed ") << DisplayName::of(folder.path) << "\n";
    return 0;
}

int FolderCommand::setMode(const std::string& folderName, const std::string& modeName) {
    auto mode = captureModeFromString(modeName);
    if (!mode) throw CommandError("'" + modeName + "' is not a mode; use automatic or manual");
    WatchedFolder folder = context_.folders().require(folderName);
    folder.mode = *mode;
    context_.folders().replace(folder);
    out_ << DisplayName::of(folder.path) << " is now " << modeName << "\n";
    return 0;
}

int FolderCommand::setBudget(const std::string& folderName, const std::string& budgetText) {
    FolderBudget budget;
    if (budgetText == "automatic" || budgetText == "auto") {
        budget.kind = FolderBudget::Kind::automatic;
    } else if (budgetText == "unlimited") {
        budget.kind = FolderBudget::Kind::unlimited;
    } else {
        const auto reading = readByteCount(budgetText);
        if (!reading.bytes)
            throw CommandError("'" + budgetText + "' is not a budget: it " + reading.problem +
                               "; use automatic, unlimited or a size such as 20GB");
        if (*reading.bytes < FolderBudget::smallestBytes)
            throw CommandError("'" + budgetText + "' is too small for a budget (" + formatByteCount(*reading.bytes) +
                               "); the smallest is " + formatByteCount(FolderBudget::smallestBytes));
        budget = {FolderBudget::Kind::bytes, *reading.bytes};
    }
    WatchedFolder folder = context_.folders().require(folderName);
    folder.budget = budget;
    context_.folders().replace(folder);
    out_ << "Budget of " << DisplayName::of(folder.path) << ": "
         << (budget.kind == FolderBudget::Kind::bytes ? formatByteCount(budget.bytes) : budgetText) << "\n";
    return 0;
}

}  // namespace vosklin
