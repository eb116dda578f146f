#pragma once

#include <nlohmann/json.hpp>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "app/AppContext.h"
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
//   comparemoments {"folder", "from", "to"} -> "folderID", "added", "changed", "deleted", "renamed",
//            each entry "fileID", "relativePath" (the "to" side's, or the "from" side's for a
//            deletion), "previousPath" (renames), "oldVersionID", "newVersionID", "oldBytes",
//            "newBytes" (null where a side has no file). Files are
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

private:
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
};

}  // namespace vosklin
