#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "catalog/ContentRecords.h"
#include "catalog/RecentFile.h"
#include "catalog/VersionCatalog.h"
#include "platform/Clock.h"
#include "search/ContentQuery.h"

namespace vosklin {

// The versions of one file whose text matches, newest first.
struct ContentHitGroup {
    TrackedFile file;
    std::vector<ContentHit> hits;
};

// Searches a watched folder's history: the text of its versions (contents)
// or the paths its files ever had (names).
//
// The user's words become a full-text expression in which every word is
// quoted, so punctuation and query operators in user text are taken
// literally, and the last word is a prefix. Hits come newest first and are
// grouped by file in order of first appearance. Holds the count of texts
// still waiting to be indexed, recounted at most every 30 s since counting
// walks the whole catalog. Thread-safe; catalog failures are thrown as
// DatabaseError.
class ContentSearchModel {
public:
    enum class Scope { names, contents };
    static constexpr std::size_t minimumLength = 2;  // characters
    static constexpr std::int64_t hitLimit = 300;
    static constexpr double pendingRecountSeconds = 30;
    static constexpr const char* startMarker = "\x01";
    static constexpr const char* endMarker = "\x02";

    struct Outcome {
        std::vector<ContentHitGroup> groups;  // contents scope
        std::vector<RecentFile> files;        // names scope
        // Why nothing was searched or found: "history.search.contents.empty",
        // ".minLength", ".noMatches"; nothing when there are results.
        std::optional<std::string> messageKey;
        bool searched = false;
    };

    ContentSearchModel(VersionCatalog& catalog, Clock& clock);

    // The full-text expression for the user's text, or nothing when no word
    // holds a letter or digit.
    static std::optional<std::string> matchExpression(const std::string& text);
    // Why `text` cannot be searched ("history.search.contents.empty" or
    // ".minLength"), or nothing when it can.
    static std::optional<std::string> screen(const std::string& text);
    // Rows arrive newest first; groups keep the order in which files first appear.
    static std::vector<ContentHitGroup> group(const std::vector<ContentMatch>& rows);
    static std::string scopeName(Scope scope) { return scope == Scope::names ? "names" : "contents"; }

    Outcome search(Scope scope, const ContentQuery& query);
    // Digests still waiting to be indexed, as last counted.
    std::int64_t pending();

private:
    VersionCatalog& catalog_;
    Clock& clock_;
    std::mutex lock_;
    std::int64_t pending_ = 0;
    std::optional<double> pendingCountedAt_;
};

}  // namespace vosklin
