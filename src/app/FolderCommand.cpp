#include "app/FolderCommand.h"

#include "app/ByteCount.h"
#include "app/FolderRequests.h"
#include "app/JsonRecords.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"

namespace vosklin {

FolderCommand::FolderCommand(AppContext& context, std::ostream& out) : context_(context), out_(out) {}

int FolderCommand::add(const std::string& path, bool manual, bool json) {
    WatchedFolder folder = FolderRequests::addFolder(context_, path, manual);
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
    nlohmann::json array = nlohmann::json::array();
    if (!json && folders.empty()) {
        out_ << "No folders are watched. Add one with 'vosklin folder add PATH'.\n";
        return 0;
    }
    for (const auto& folder : folders) {
        auto entry = FolderRequests::listEntry(context_, folder);
        if (json) {
            array.push_back(entry);
            continue;
        }
        std::string state = !entry["reachable"].get<bool>()
                                ? "unreachable: " + entry["unreachableReason"].get<std::string>()
                            : folder.isPaused ? "paused"
                                              : std::string(toString(folder.mode));
        out_ << DisplayName::of(folder.path) << "\n"
             << "  id:       " << folder.id << "\n"
             << "  state:    " << state << "\n"
             << "  history:  " << entry["versions"].get<std::int64_t>() << " versions, "
             << formatByteCount(entry["logicalBytes"].get<std::int64_t>()) << "\n";
    }
    if (json) out_ << array.dump(2) << "\n";
    return 0;
}

int FolderCommand::remove(const std::string& folderName, bool forgetHistory) {
    WatchedFolder folder = FolderRequests::requireFolder(context_, folderName);
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
    WatchedFolder folder = FolderRequests::requireFolder(context_, folderName);
    folder.isPaused = paused;
    context_.folders().replace(folder);
    out_ << (paused ? "Paused " : "Resumed ") << DisplayName::of(folder.path) << "\n";
    return 0;
}

int FolderCommand::setMode(const std::string& folderName, const std::string& modeName) {
    const CaptureMode mode = FolderRequests::readMode(modeName);
    WatchedFolder folder = FolderRequests::requireFolder(context_, folderName);
    folder.mode = mode;
    context_.folders().replace(folder);
    out_ << DisplayName::of(folder.path) << " is now " << modeName << "\n";
    return 0;
}

int FolderCommand::setBudget(const std::string& folderName, const std::string& budgetText) {
    const FolderBudget budget = FolderRequests::readBudget(budgetText);
    WatchedFolder folder = FolderRequests::requireFolder(context_, folderName);
    folder.budget = budget;
    context_.folders().replace(folder);
    out_ << "Budget of " << DisplayName::of(folder.path) << ": "
         << (budget.kind == FolderBudget::Kind::bytes ? formatByteCount(budget.bytes) : budgetText) << "\n";
    return 0;
}

}  // namespace vosklin
