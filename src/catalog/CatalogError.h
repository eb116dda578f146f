#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace vosklin {

class CatalogError : public std::runtime_error {
public:
    enum class Kind {
        storeIsNewerThanTheApp,  // the store's schema is newer than this build knows
        fileNotFound,            // an operation was given a file id with no row
        damaged,                 // the catalog file cannot be what this build wrote; it is left as it is
    };

    static CatalogError storeIsNewerThanTheApp(std::int32_t store, std::int32_t app) {
        return CatalogError(Kind::storeIsNewerThanTheApp, store, app, 0,
                            "The store was written by a newer Vosklin (schema " + std::to_string(store) +
                                "; this Vosklin reads up to " + std::to_string(app) + ")");
    }
    static CatalogError fileNotFound(std::int64_t id) {
        return CatalogError(Kind::fileNotFound, 0, 0, id, "No tracked file with id " + std::to_string(id));
    }

    // `reason` says what is wrong ("the file is empty", "schema version -1"). The
    // message tells the user how to recover, since the versions themselves are intact.
    static CatalogError damaged(const std::string& reason) {
        return CatalogError(Kind::damaged, 0, 0, 0,
                            "The catalog is damaged (" + reason +
                                "); run 'vosklin check --rebuild' to rebuild it from the stored versions");
    }

    Kind kind() const { return kind_; }
    std::int32_t storeVersion() const { return store_; }
    std::int32_t appVersion() const { return app_; }
    std::int64_t fileID() const { return fileID_; }

private:
    CatalogError(Kind kind, std::int32_t store, std::int32_t app, std::int64_t fileID, const std::string& what)
        : std::runtime_error(what), kind_(kind), store_(store), app_(app), fileID_(fileID) {}

    Kind kind_;
    std::int32_t store_, app_;
    std::int64_t fileID_;
};

}  // namespace vosklin
