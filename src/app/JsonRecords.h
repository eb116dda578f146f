#pragma once

#include <nlohmann/json.hpp>

#include "bridge/WatchedFolder.h"
#include "capture/ReconciliationCrawler.h"
#include "catalog/StoredVersion.h"
#include "catalog/TrackedFile.h"

namespace vosklin {

// The --json shapes of the records, with the records' field names in camelCase.
nlohmann::json toJson(const StoredVersion& version);
nlohmann::json toJson(const TrackedFile& file);
nlohmann::json toJson(const WatchedFolder& folder);
nlohmann::json toJson(const CrawlReport& report);

}  // namespace vosklin
