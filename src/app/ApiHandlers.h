#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "app/AppContext.h"
#include "capture/CaptureEngine.h"

namespace vosklin {

// A request the handlers refuse, with the HTTP status that says why.
class ApiError : public std::runtime_error {
public:
    ApiError(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

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
//
// With an engine (in the daemon) work goes through it; without one it runs in
// this process. Failures are thrown as ApiError.
class ApiHandlers {
public:
    ApiHandlers(AppContext& context, CaptureEngine* engine);

    nlohmann::json call(const std::string& name, const nlohmann::json& request);

private:
    WatchedFolder folderOf(const nlohmann::json& request, bool mustBeReachable = true);
    nlohmann::json mark(const nlohmann::json& request, bool naming);
    nlohmann::json star(const nlohmann::json& request, bool starred);
    nlohmann::json restore(const nlohmann::json& request);
    nlohmann::json rewind(const nlohmann::json& request);

    AppContext& context_;
    CaptureEngine* engine_;
};

}  // namespace vosklin
