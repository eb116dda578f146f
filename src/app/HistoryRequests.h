#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

class ApiRequest;

// The window's requests that read a folder's history: its timeline a page at a
// time, its days, its files at a moment, every path it ever had, a file's
// versions, and what changed between two moments (see ApiHandlers.h for the
// shapes). They only read, through the read-only catalog as the commands that
// read history do, and answer in the command line's --json shapes where one
// exists. Failures are thrown as ApiError. Cheap to make: one per request.
class HistoryRequests {
public:
    static constexpr std::int64_t defaultPageRows = 1000;
    static constexpr std::int64_t mostPageRows = 5000;
    // A moment lists this many of its changes on a page (with "changeCount" when it has more).
    static constexpr std::size_t changesPerMoment = 200;
    static constexpr std::int64_t defaultVersions = 500;
    static constexpr std::int64_t mostVersions = 5000;

    explicit HistoryRequests(AppContext& context);

    // Whether `name` is one of these requests.
    static bool handles(const std::string& name);
    nlohmann::json answer(const std::string& name, const ApiRequest& request);

private:
    nlohmann::json history(const ApiRequest& request);
    nlohmann::json calendar(const ApiRequest& request);
    nlohmann::json files(const ApiRequest& request);
    nlohmann::json paths(const ApiRequest& request);
    nlohmann::json versions(const ApiRequest& request);
    nlohmann::json compareMoments(const ApiRequest& request);

    WatchedFolder folderOf(const ApiRequest& request);

    AppContext& context_;
};

}  // namespace vosklin
