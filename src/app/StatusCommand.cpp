#include "app/StatusCommand.h"

#include <nlohmann/json.hpp>

#include "app/ByteCount.h"
#include "app/CommandError.h"
#include "app/DaemonClient.h"
#include "app/DaemonEndpoint.h"
#include "app/JsonRecords.h"
#include "app/VosklinVersion.h"
#include "catalog/CatalogError.h"
#include "catalog/CatalogMigrations.h"
#include "catalog/DatabaseError.h"
#include "catalog/VersionCatalog.h"
#include "platform/DisplayName.h"
#include "platform/PathJson.h"
#include "bridge/FolderAccess.h"

namespace vosklin {
namespace {

const char* stateName(StatusReport::StoreState state) {
    switch (state) {
        case StatusReport::StoreState::absent: return "absent";
        case StatusReport::StoreState::ready: return "ready";
        case StatusReport::StoreState::newer: return "newer";
        case StatusReport::StoreState::unavailable: return "unavailable";
        case StatusReport::StoreState::damaged: return "damaged";
    }
    return "unknown";
}

}  // namespace

StatusCommand::StatusCommand(AppContext& context) : context_(context) {}

StatusReport StatusCommand::gather() {
    StatusReport report;
    report.containerRoot = context_.locator().containerRoot();
    report.storeRoot = context_.locator().storeRoot();
    report.supportedSchemaVersion = CatalogMigrations::currentVersion;
    std::vector<WatchedFolder> folders;
    try {
        folders = context_.folders().folders();
    } catch (const std::exception& error) {
        report.foldersProblem = error.what();
    }
    FolderAccess access(context_.fileSystem());
    for (const auto& folder : folders) {
        StatusReport::Folder entry;
        entry.folder = folder;
        auto reach = access.check(folder);
        entry.reachable = reach.reachable;
        entry.unreachableReason = reach.reason;
        report.folders.push_back(entry);
    }
    if (!context_.storeExists()) {
        report.storeState = StatusReport::StoreState::absent;
        return report;
    }
    try {
        VersionCatalog& catalog = context_.readCatalog();
        for (auto& entry : report.folders) {
            entry.files = std::int64_t(catalog.files(entry.folder.id, true).size());
            entry.versions = catalog.folderVersionCount(entry.folder.id);
            entry.logicalBytes = catalog.folderBytes(entry.folder.id);
            entry.unreadable = catalog.unreadableItems(entry.folder.id);
        }
        report.schemaVersion = catalog.schemaVersion();
        CatalogTotals totals = catalog.totals();
        report.files = totals.files;
        report.liveFiles = totals.liveFiles;
        report.versions = totals.versions;
        report.logicalBytes = totals.logicalBytes;
        report.storeState = StatusReport::StoreState::ready;
    } catch (const CatalogError& error) {
        if (error.kind() == CatalogError::Kind::damaged) {
            report.storeState = StatusReport::StoreState::damaged;
            report.detail = error.what();
            return report;
        }
        if (error.kind() != CatalogError::Kind::storeIsNewerThanTheApp) throw;
        report.storeState = StatusReport::StoreState::newer;
        report.schemaVersion = error.storeVersion();
        report.detail = error.what();
    } catch (const DatabaseError& error) {
        const bool damaged = Database::isDamageCode(error.code());
        report.storeState = damaged ? StatusReport::StoreState::damaged : StatusReport::StoreState::unavailable;
        report.detail = damaged ? CatalogError::damaged(error.message()).what() : error.what();
    }
    return report;
}

int StatusCommand::run(bool json, std::ostream& out, std::ostream& err) {
    StatusReport report = gather();
    std::optional<DaemonEndpoint> daemon = DaemonEndpoint::find(context_.fileSystem(), context_.locator().containerRoot());
    nlohmann::json daemonState = {{"running", daemon.has_value()}};
    if (daemon) {
        daemonState["pid"] = daemon->pid;
        daemonState["port"] = daemon->port;
        putPath(daemonState, "socket", daemon->socketPath);
        try {
            auto answer = DaemonClient(*daemon).call("status", nlohmann::json::object(), 10);
            daemonState["stats"] = answer.value("stats", nlohmann::json::object());
            daemonState["folders"] = answer.value("folders", nlohmann::json::array());
        } catch (const std::exception& error) {
            daemonState["error"] = error.what();
        }
    }
    const bool usable = report.storeState == StatusReport::StoreState::ready ||
                        report.storeState == StatusReport::StoreState::absent;
    if (json) {
        nlohmann::json object;
        object["version"] = std::string(vosklinVersion);
        putPath(object, "home", report.containerRoot);
        putPath(object, "storePath", report.storeRoot);
        object["store"] = stateName(report.storeState);
        object["schemaVersion"] = report.schemaVersion ? nlohmann::json(*report.schemaVersion) : nlohmann::json();
        object["supportedSchemaVersion"] = report.supportedSchemaVersion;
        object["files"] = report.files;
        object["liveFiles"] = report.liveFiles;
        object["versions"] = report.versions;
        object["logicalBytes"] = report.logicalBytes;
        if (!report.detail.empty()) object["detail"] = report.detail;
        object["folders"] = nlohmann::json::array();
        for (const auto& entry : report.folders) {
            auto folder = toJson(entry.folder);
            folder["reachable"] = entry.reachable;
            if (!entry.reachable) folder["unreachableReason"] = entry.unreachableReason;
            folder["files"] = entry.files;
            folder["versions"] = entry.versions;
            folder["logicalBytes"] = entry.logicalBytes;
            folder["unreadableCount"] = entry.unreadable.count;
            folder["unreadablePaths"] = nlohmann::json::array();
            for (const auto& path : entry.unreadable.paths) folder["unreadablePaths"].push_back(displayableUtf8(path));
            object["folders"].push_back(folder);
        }
        if (!report.foldersProblem.empty()) object["foldersProblem"] = report.foldersProblem;
        object["daemon"] = daemonState;
        out << object.dump(2) << "\n";
    } else {
        out << "Vosklin " << vosklinVersion << "\n";
        out << "Home:      " << DisplayName::of(report.containerRoot) << "\n";
        out << "Store:     " << DisplayName::of(report.storeRoot);
        switch (report.storeState) {
            case StatusReport::StoreState::absent:
                out << " (not created yet: nothing has been recorded)\n";
                break;
            case StatusReport::StoreState::ready:
                out << " (schema " << *report.schemaVersion << ")\n";
                out << "Files:     " << report.files << " (" << report.liveFiles << " present, "
                    << report.files - report.liveFiles << " deleted)\n";
                out << "Versions:  " << report.versions << ", " << formatByteCount(report.logicalBytes) << "\n";
                break;
            case StatusReport::StoreState::newer:
                out << " (schema " << *report.schemaVersion << ")\n";
                break;
            case StatusReport::StoreState::unavailable:
                out << " (unavailable)\n";
                break;
            case StatusReport::StoreState::damaged:
                out << " (catalog damaged)\n";
                break;
        }
        if (daemon) {
            out << "Daemon:    running (pid " << daemon->pid << ", listening on " << DisplayName::of(daemon->socketPath)
                << " and 127.0.0.1:" << daemon->port << ")";
            if (daemonState.contains("stats")) {
                const auto& stats = daemonState["stats"];
                out << "; " << stats.value("stored", 0) << " versions stored, " << stats.value("pending", 0)
                    << " changes settling" << (stats.value("isCrawling", false) ? ", crawling" : "");
            }
            out << "\n";
            for (const auto& folder : daemonState.value("folders", nlohmann::json::array()))
                if (folder.value("degraded", false))
                    out << "           " << DisplayName::of(getPath(folder, "path"))
                        << ": inotify watch limit reached, crawled every 5 minutes instead\n";
        } else {
            out << "Daemon:    not running ('vosklin run' records live)\n";
        }
        if (report.folders.empty() && report.foldersProblem.empty())
            out << "Folders:   none watched ('vosklin folder add PATH' adds one)\n";
        for (const auto& entry : report.folders) {
            out << "Folder:    " << DisplayName::of(entry.folder.path) << "\n           ";
            if (!entry.reachable) out << "unreachable: " << entry.unreachableReason;
            else if (entry.folder.isPaused) out << "paused";
            else out << toString(entry.folder.mode);
            out << "; " << entry.files << " files, " << entry.versions << " versions, "
                << formatByteCount(entry.logicalBytes) << "\n";
            if (entry.unreadable.count) {
                out << "           the last scan could not read " << entry.unreadable.count
                    << (entry.unreadable.count == 1 ? " item:" : " items, among them:");
                for (const auto& path : entry.unreadable.paths) out << " " << DisplayName::of(path);
                out << "\n";
            }
        }
    }
    if (!report.foldersProblem.empty()) err << "vosklin: " << report.foldersProblem << "\n";
    if (report.storeState == StatusReport::StoreState::newer) {
        err << "vosklin: the store was written by a newer Vosklin (schema " << *report.schemaVersion
            << "; this Vosklin reads up to " << report.supportedSchemaVersion
            << "). It was left untouched; update Vosklin to use it.\n";
    } else if (report.storeState == StatusReport::StoreState::damaged) {
        err << "vosklin: " << report.detail << "\n";
    } else if (report.storeState == StatusReport::StoreState::unavailable) {
        err << "vosklin: the store cannot be opened: " << report.detail << "\n";
    }
    if (!usable) return 1;
    for (const auto& entry : report.folders)
        if (entry.unreadable.count) return exitSomeUnreadable;
    return 0;
}

}  // namespace vosklin
