#pragma once

#include <nlohmann/json.hpp>
#include <optional>

#include "bridge/WatchedFolder.h"
#include "capture/ReconciliationCrawler.h"
#include "catalog/FileStateAt.h"
#include "catalog/StoredVersion.h"
#include "catalog/RecentFile.h"
#include "catalog/TrackedFile.h"
#include "history/FolderHistory.h"
#include "restore/FolderExport.h"
#include "search/ContentSearchModel.h"

namespace vosklin {

// The --json shapes of the records, with the records' field names in camelCase.
nlohmann::json toJson(const StoredVersion& version);
nlohmann::json toJson(const TrackedFile& file);
// A search result of a folder at `folderPath`: the file (with its absolute "path") and its hits.
nlohmann::json toJson(const ContentHitGroup& group, const std::string& folderPath);
// What an export of folder `folderID` as it was at `at` wrote.
nlohmann::json toJson(const FolderExport::Report& report, const std::string& folderID, double at);
// A file found by name: the file (with "path"), "versionCount", "lastCapturedAt".
nlohmann::json toJson(const RecentFile& file, const std::string& folderPath);
nlohmann::json toJson(const WatchedFolder& folder);
nlohmann::json toJson(const CrawlReport& report);
// The sessions of a history (or of a page of one) as `vosklin history --json` lists them.
// With a limit, a moment lists at most that many changes and then says how many it has
// ("changeCount"), so a moment of a whole folder's first scan does not weigh megabytes.
nlohmann::json sessionsJson(const FolderHistory& history, std::optional<std::size_t> changeLimit = std::nullopt);
// A file as it was at an instant, as `vosklin show --json` lists it.
nlohmann::json toJson(const FileStateAt& state);

}  // namespace vosklin
