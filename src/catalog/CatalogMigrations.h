#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "catalog/Database.h"

namespace vosklin {

// The catalog schema as an ordered list of migrations; migration n (1-based)
// moves a store from schema version n-1 to n. No other code creates or alters
// schema objects.
class CatalogMigrations {
public:
    static constexpr std::int32_t currentVersion = 8;

    // The eight SQL texts, each run as one execute.
    static const std::vector<std::string>& standard();

    // Brings `database` from its "PRAGMA user_version" up to the last of
    // `migrations`: each in its own "BEGIN IMMEDIATE" ... "COMMIT", with
    // "PRAGMA user_version = n" run after the commit (its failure ignored). A
    // failing migration is rolled back and thrown; later ones are not tried.
    // A store newer than `migrations` is refused with
    // CatalogError::storeIsNewerThanTheApp and left untouched.
    // A negative version, which no build writes, is CatalogError::damaged.
    // `onApplied` hears each version reached, in order.
    static void migrate(Database& database, const std::vector<std::string>& migrations = standard(),
                        const std::function<void(std::int32_t)>& onApplied = nullptr);
};

}  // namespace vosklin
