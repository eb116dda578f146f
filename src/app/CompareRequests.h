#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "app/AppContext.h"
#include "compare/TextDiff.h"
#include "platform/RegularFile.h"
#include "restore/RewindPlan.h"

namespace vosklin {

class ApiRequest;

// The window's comparisons and the rewind plan it shows before a rewind:
// `diff`, `bincompare` and `rewindplan` (see ApiHandlers.h for their shapes).
// The pieces the command line shares (`vosklin diff`, `vosklin rewind`) are the
// static functions below; failures are ApiError, whose message the command
// line prints as it is.
class CompareRequests {
public:
    // Beyond this a text comparison would only be a positional summary nobody reads.
    static constexpr std::int64_t largestCompared = 512ll * 1024 * 1024;
    // A binary comparison reads both sides this much at a time.
    static constexpr std::size_t chunkSize = 64 * 1024;
    // The bytes shown around the first difference.
    static constexpr std::size_t windowSize = 256;

    explicit CompareRequests(AppContext& context);

    // The answer to `name`, or nothing when it is not one of these requests.
    std::optional<nlohmann::json> answer(const std::string& name, const ApiRequest& request);

    // `diff --json`: "kind" ("lines", "summary" or "notText"), then the "lines" (each "kind",
    // "text", "oldNumber", "newNumber") or the summary's counts and "regions".
    static nlohmann::json diffJson(const TextDiff::Result& result);
    // A version's bytes for a text comparison, verified: 404 when there is no such version,
    // 409 for a package or one too large.
    static std::string versionText(AppContext& context, std::int64_t versionID);
    // The file as it is now at its path inside its watched folder, every folder on the way
    // and the file itself opened without following a link. Nothing when the file is deleted,
    // its folder is not watched or unreachable, or what is there is not a regular file.
    static std::optional<OpenedFile> openLive(AppContext& context, const TrackedFile& file);

    // The plan for rewinding `folder` to `target`, as `rewind` would make it now: ApiError 409
    // when there is nothing to do, 403 when the plan cannot be made safely.
    static RewindPlan rewindPlan(AppContext& context, const WatchedFolder& folder, double target);
    // `rewind --dry-run --json`: "folderID", "target", "counts" ("revert", "restore", "remove"),
    // "steps" (each "action", "relativePath", "versionID", "fileID", "isPackage", "currentBytes",
    // "restoredBytes") and "planFingerprint", which `rewind` takes to refuse a plan changed since.
    static nlohmann::json planJson(const RewindPlan& plan, const WatchedFolder& folder);
    // The instant a rewind request goes back to: "target" in seconds since 1970 (exact), or as
    // text, read as the moment it names. ApiError(400) when there is none.
    static double rewindTarget(AppContext& context, const WatchedFolder& folder, const ApiRequest& request);

private:
    nlohmann::json diff(const ApiRequest& request);
    nlohmann::json binaryCompare(const ApiRequest& request);
    nlohmann::json plan(const ApiRequest& request);

    AppContext& context_;
};

}  // namespace vosklin
