#pragma once

#include <cstdint>
#include <string>

#include "catalog/TrackedFile.h"

namespace vosklin {

// A version whose digest has no extracted text yet.
struct PendingContent {
    std::int64_t versionID = 0;
    std::string digest;
    std::string slot;
    std::string payloadName;
    bool isPackage = false;
};

// How extraction of one digest ended; stored as content_texts.state.
enum class ContentState : std::int64_t { indexed = 1, noText = 2, failed = 3 };

// One version whose text matches a search, with the words around the match.
struct ContentHit {
    std::int64_t versionID = 0;
    double capturedAt = 0;
    std::string snippet;
};

// A search result row: the hit and the file whose version it is.
struct ContentMatch {
    TrackedFile file;
    ContentHit hit;
};

// How many digests ended in each state.
struct ContentIndexCounts {
    std::int64_t indexed = 0;
    std::int64_t withoutText = 0;
    std::int64_t failed = 0;
};

}  // namespace vosklin
