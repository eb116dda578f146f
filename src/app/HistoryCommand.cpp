#include "app/HistoryCommand.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "app/ApiHandlers.h"
#include "app/ByteCount.h"
#include "app/CommandError.h"
#include "app/DaemonClient.h"
#include "app/DaemonEndpoint.h"
#include "app/JsonRecords.h"
#include "app/TerminalOutput.h"
#include "app/UserInstant.h"
#include "history/FolderHistory.h"
#include "platform/DisplayName.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/StringTable.h"

namespace vosklin {
namespace {

constexpr std::size_t foldedChanges = 10;

std::string signedBytes(std::int64_t delta) {
    // Unsigned negation: the magnitude of the most negative delta still fits.
    const auto magnitude = delta < 0 ? 0 - static_cast<std::uint64_t>(delta) : static_cast<std::uint64_t>(delta);
    std::string text(1, delta < 0 ? '-' : '+');
    text += formatByteCount(static_cast<std::int64_t>(std::min<std::uint64_t>(magnitude, INT64_MAX)));
    return text;
}

// Sends a request that changes history to the daemon when one runs, else handles it here.
nlohmann::json changeHistory(AppContext& context, const std::string& name, const nlohmann::json& request) {
    if (auto daemon = DaemonEndpoint::find(context.fileSystem(), context.locator().containerRoot()))
        return DaemonClient(*daemon).call(name, request, 60);
    return ApiHandlers(context, nullptr).call(name, request);
}

}  // namespace

HistoryCommand::HistoryCommand(AppContext& context, std::ostream& out) : context_(context), out_(out) {}

int HistoryCommand::history(const std::string& folderName, bool json, bool all) {
    WatchedFolder folder = context_.folders().require(folderName);
    FolderHistory history;
    if (context_.storeExists()) history = FolderHistory::load(context_.readCatalog(), folder.id);
    if (json) {
        nlohmann::json object;
        object["folderID"] = folder.id;
        object["sessions"] = sessionsJson(history);
        out_ << object.dump(2) << "\n";
        return 0;
    }
    if (history.sessions.empty()) {
        out_ << "No history of " << DisplayName::of(folder.path) << " yet ('vosklin scan' or 'vosklin run' records it).\n";
        return 0;
    }
    for (const auto& session : history.sessions) {
        out_ << "Session " << formatLocalTime(session.start) << " to " << formatLocalTime(session.end) << "\n";
        for (const auto& moment : session.moments) {
            out_ << "  " << formatLocalTime(moment.at) << "  " << history.headline(moment) << "   ["
                 << formatInstant(moment.at) << "]\n";
            std::size_t shown = 0;
            for (const auto& change : moment.changes) {
                if (!all && shown == foldedChanges) {
                    out_ << "      "
                         << StringTable::count("rewind.moment.more %lld",
                                               static_cast<long long>(moment.changes.size() - shown))
                         << "\n";
                    break;
                }
                ++shown;
                std::string label = StringTable::text("rewind.change." + std::string(MomentClustering::toString(change.kind)));
                char line[64];
                std::snprintf(line, sizeof line, "      %-9s ", label.c_str());
                out_ << line << DisplayName::of(change.relativePath);
                if (change.previousPath) out_ << " (was " << DisplayName::of(*change.previousPath) << ")";
                out_ << "  " << formatByteCount(change.bytes);
                if (change.byteDelta && *change.byteDelta != 0) out_ << " (" << signedBytes(*change.byteDelta) << ")";
                out_ << "\n";
            }
        }
    }
    return 0;
}

int HistoryCommand::show(const std::string& folderName, const std::string& atText, bool json) {
    WatchedFolder folder = context_.folders().require(folderName);
    const auto reading = readUserInstant(atText);
    if (!reading.instant) throw CommandError(userInstantRefusal(atText, reading));
    auto at = reading.instant;
    std::vector<FileStateAt> states;
    if (context_.storeExists()) {
        // As printed, an instant is rounded to the microsecond: read the state it stands for.
        at = FolderHistory::load(context_.readCatalog(), folder.id).stateInstant(*at);
        states = context_.readCatalog().stateAt(folder.id, *at);
    }
    std::sort(states.begin(), states.end(),
              [](const FileStateAt& a, const FileStateAt& b) { return a.file.relativePath < b.file.relativePath; });
    if (json) {
        nlohmann::json array = nlohmann::json::array();
        for (const auto& state : states) array.push_back(toJson(state));
        out_ << nlohmann::json({{"folderID", folder.id}, {"at", formatInstant(*at)}, {"files", array}}).dump(2) << "\n";
        return 0;
    }
    out_ << DisplayName::of(folder.path) << " as it was at " << formatLocalTime(*at) << ": " << states.size()
         << (states.size() == 1 ? " file" : " files") << "\n";
    for (const auto& state : states) {
        char line[64];
        std::snprintf(line, sizeof line, "%8lld  %10s  ", static_cast<long long>(state.version.id),
                      formatByteCount(state.version.logicalBytes).c_str());
        out_ << line << DisplayName::of(state.file.relativePath) << (state.file.isPackage ? "/" : "") << "\n";
    }
    return 0;
}

int HistoryCommand::name(const std::string& folderName, const std::string& momentText,
                         const std::optional<std::string>& newName) {
    WatchedFolder folder = context_.folders().require(folderName);
    nlohmann::json request = {{"moment", momentText}};
    putPath(request, "folder", folder.path);
    if (newName) request["name"] = *newName;
    auto answer = changeHistory(context_, newName ? "name" : "unname", request);
    out_ << (newName ? "Named the moment of " : "Removed the name of the moment of ")
         << formatLocalTime(parseInstant(answer.value("at", "")).value_or(0)) << "\n";
    return 0;
}

int HistoryCommand::restore(const std::string& version, bool inPlace, const std::optional<std::string>& previous) {
    nlohmann::json request;
    if (previous) {
        putPath(request, "previous", absolutePath(*previous));
    } else {
        char* end = nullptr;
        const long long id = std::strtoll(version.c_str(), &end, 10);
        if (version.empty() || *end != '\0' || id <= 0)
            throw CommandError("'" + version + "' is not a version number (see 'vosklin versions PATH')");
        request = {{"version", id}, {"inPlace", inPlace}};
    }
    if (!context_.storeExists()) throw CommandError("There is no version " + version);
    auto answer = changeHistory(context_, "restore", request);
    out_ << "Restored " << DisplayName::of(getPath(answer, "restoredPath"));
    if (!answer["preRestoreVersionID"].is_null())
        out_ << " (what was there is kept as version " << answer["preRestoreVersionID"].get<std::int64_t>() << ")";
    out_ << "\n";
    return 0;
}

int HistoryCommand::star(const std::string& version, bool starred) {
    auto answer = changeHistory(context_, starred ? "star" : "unstar", {{"version", version}});
    out_ << (starred ? "Starred version " : "Unstarred version ") << answer.value("id", std::int64_t(0)) << "\n";
    return 0;
}

}  // namespace vosklin
