#pragma once

#include <nlohmann/json.hpp>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "app/AppContext.h"
#include "app/CompareRequests.h"
#include "app/FolderRequests.h"
#include "app/ChangeFeed.h"
#include "capture/CaptureEngine.h"
#include "search/ContentSearchModel.h"

namespace vosklin {

// A request the handlers refuse, with the HTTP status that says why.
class ApiError : public std::runtime_error {
public:
    ApiError(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

// What a transport sends back: the HTTP-style status and the JSON body
// ({"error": message} when the status is not 200).
struct ApiResponse {
    int status = 200;
    nlohmann::json body;
};

class ApiRequest;

// The one request/response layer, JSON in and JSON out, behind both the
// daemon's local API and the command line when no daemon runs, so every
// front end shares one set of handlers.
//
//   status   {}                          -> daemon state, engine stats, folders
//   snapshot {"folder": id-or-path}      -> the snapshot report
//   scan     {"folder": id-or-path}      -> the crawl report
//   settle   {"timeout": seconds}        -> {"settled": bool}   (daemon only)
//   name     {"folder", "moment", "name"} -> {"at": the moment's instant}
//   unname   {"folder", "moment"}         -> {"at": ...}
//   star     {"version": id}              -> {"id", "isStarred"}   (and unstar)
//   rewind   {"folder", "target": seconds since 1970 (exact), or text,
//             "planFingerprint": optional, of the plan the user saw} -> the rewind report;
//             409 when the plan made now is not the one seen
//   restore  {"version": id, "inPlace": bool} or {"previous": path} -> {"mode", "restoredPath", "preRestoreVersionID"}
//   prune    {"dryRun": bool}             -> the pass's totals and each folder's ("ran": false when one was running)
//   delete   {"versions": [ids]} or {"path": a file's path, for its whole history}, "dryRun": bool
//            -> the preview ("versionCount", "reclaimableBytes", the flags, "vanishingMomentNames"),
//               "versionIDs" and "scope" ("version" or "file"); after an erase also "deletedCount"
//   index    {"action": "status" | "clear" | "now", "budget": optional, for now}
//            -> "indexed", "withoutText", "failed", "pending", "textBytes"; after now also "run"
//               ("versions", "indexed", "withoutText", "failed", "end", "finished")
//   search   {"folder", "text", "scope": "contents" (default) or "names"}
//            -> "groups" (each "file" with its "path", and "hits" or, for names, "versionCount"),
//               "pending", and "messageKey"/"message" when nothing was searched or found
//   export   {"folder", "moment", "destination": a new folder's absolute path}
//            -> "fileCount", "clonedCount", "logicalBytes", "destination", "at"; 409 when refused
//   strings  {}                           -> {"texts": {key: text}, "singular": {key: the form for 1}}
//   folders  {} -> {"folders": [as `folder list --json`, with "state" ("recording", "paused", "manual",
//            "unreachable", "degraded"), "lastChangeAt" (or null), "budget", "budgetBytes", "overBudget"]}
//   folderadd {"path": absolute, "manual": bool} -> the folder as `folder list --json` lists it;
//            409 with `folder add`'s message when it may not be watched
//   folderremove {"folder"}               -> {"folderID", "path", "historyKept": true} (history stays)
//   folderpause, folderresume {"folder"}; foldermode {"folder", "mode": "automatic" | "manual"};
//   folderbudget {"folder", "budget": "automatic" | "unlimited" | a size ("20GB") or bytes}
//            -> the folder as `folder list --json` lists it
//   complete {"prefix": an absolute path as typed} -> {"directories": [absolute paths]}: the readable
//            folders beside the last piece that start with it, in natural order, at most 50;
//            hidden ones only when the piece starts with "."
//   settings {}                           -> as `settings --json`
//   setting  {"key", "value": text, number, bool, list of texts, or null for the default}
//            -> as `settings KEY VALUE --json`; 400 with its message, and nothing written, when refused
//   usage    {"folder": optional}         -> as `usage --json`
//   autostart {"enabled": optional bool}  -> {"enabled"} (and "warning" when systemd did not take it)
//   diff     {"old": version, "new": version or "live"} -> as `diff --json`
//   bincompare {"old": version, "new": version or "live"}
//            -> "old" and "new" ("logicalBytes", "digest", "versionID" unless live), "firstDifference"
//               (the offset of the first differing byte, the shorter length when one is a prefix of the
//               other; null when equal), "window" ({"offset", "old", "new"}: up to 256 bytes from
//               each side around it, in hex; null when equal)
//   rewindplan {"folder", "target"}       -> as `rewind --dry-run --json`: "target", "counts" ("revert",
//            "restore", "remove"), "steps", "planFingerprint" (for `rewind`); 409 when nothing to do
//   pdfinfo  {"version": id} or {"file": fileID, "live": true} -> {"pageCount": n} (see ServedFiles)
//   logincode {}                          -> {"code": a one-time code for the window's login}
//            (daemon only; the HTTP door never answers it for a browser's session)
//
// After a change, a ChangeFeed (when one is set) hears of it: "history" after name,
// unname, star, unstar, restore, rewind, delete and a prune that removed something,
// "folders" after the folder requests, "settings" after a setting changed; with the
// answer's "folderID" when it has one. Previews (dryRun) announce nothing.
//
// What the window reads of a folder's history (HistoryRequests); instants are
// ISO 8601 as `history` prints them, or local date-times:
//   history  {"folder", "before": instant (optional, exclusive), "limit": change rows (1000; at most 5000)}
//            -> "folderID", "sessions" (as `history --json`), "next": the "before" of the next, older
//               page, or null at the end. A page holds whole moments (one larger than the limit comes
//               whole); its newest session may continue the oldest session of the page before.
//   calendar {"folder"} -> "days", newest first: each "date" (local, YYYY-MM-DD), "changes" (versions
//            and deletions and renames), "first", "last"
//   files    {"folder", "at"} -> as `show --json`, each file also with "isDeleted" (deleted now)
//   paths    {"folder"} -> "paths": every path a file ever had (old names, deleted files), each
//            "relativePath", "fileID", "isDeleted", "versionCount" (of the file)
//   versions {"file": id} or {"path": absolute, the name now or an old one}, "offset", "limit" (500;
//            at most 5000) -> "file", "path", "folderID", "versions" (newest first), "total",
//            "live": {"exists", "logicalBytes" (null for a package or nothing there)}
//   comparemoments {"folder", "from", "to"} -> "from", "to" (the instants read), and "added",
//            "changed", "deleted", "renamed", each entry "fileID", "relativePath" (the "to" side's,
//            or the "from" side's for a deletion), "previousPath" (renames), "oldVersionID",
//            "newVersionID", "oldBytes", "newBytes" (null where a side has no file). Files are
//            matched by id; a file whose bytes are the same at both is not listed.
//
// Changes to history (restore, rewind, prune, delete) run one at a time: a
// pass must not remove a version a rewind is about to read, and the eraser's
// staged ids must not interleave.
// With an engine (in the daemon) work goes through it; without one it runs in
// this process. Failures are thrown as ApiError. Bodies are read through
// ApiRequest, so a field of the wrong type or range is a 400 naming the field.
// Calls may come from several threads at once, as the transports serve them.
class ApiHandlers {
public:
    ApiHandlers(AppContext& context, CaptureEngine* engine);

    // For the transports: the body as received, and every failure as a status and message.
    ApiResponse answer(const std::string& name, const std::string& body);
    // For the command line in this process. Throws ApiError.
    nlohmann::json call(const std::string& name, const nlohmann::json& request);

    // Set by the daemon before its transports start; none in the command line's process.
    void setChangeFeed(ChangeFeed* feed) { changeFeed_ = feed; }
    ChangeFeed* changeFeed() const { return changeFeed_; }
    void setLoginCodes(std::function<std::string()> issue) { loginCodes_ = std::move(issue); }
    AppContext& context() { return context_; }

private:
    nlohmann::json run(const std::string& name, const ApiRequest& request);
    void announce(const std::string& name, const ApiRequest& request, const nlohmann::json& answer);
    nlohmann::json dispatch(const std::string& name, const ApiRequest& request);
    WatchedFolder folderOf(const ApiRequest& request, bool mustBeReachable = true);
    nlohmann::json mark(const ApiRequest& request, bool naming);
    nlohmann::json star(const ApiRequest& request, bool starred);
    nlohmann::json restore(const ApiRequest& request);
    nlohmann::json rewind(const ApiRequest& request);
    nlohmann::json prune(const ApiRequest& request);
    nlohmann::json erase(const ApiRequest& request);
    nlohmann::json index(const ApiRequest& request);
    nlohmann::json search(const ApiRequest& request);
    nlohmann::json exportFolder(const ApiRequest& request);

    AppContext& context_;
    CaptureEngine* engine_;
    std::mutex historyLock_;  // also held by exports, so a pass cannot remove what one reads
    std::mutex searchLock_;
    std::unique_ptr<ContentSearchModel> searchModel_;
    FolderRequests folderRequests_;
    CompareRequests compareRequests_;
    ChangeFeed* changeFeed_ = nullptr;
    std::function<std::string()> loginCodes_;
};

}  // namespace vosklin
