#pragma once

#include <cstdint>
#include <stop_token>

#include "search/ContentIndexer.h"

namespace vosklin {

// When the daemon's indexer runs: soon after captures stored something (so
// new text is searchable within moments while the machine allows it), and a
// bounded catch-up at each maintenance firing (for whatever a constrained or
// turned-off stretch left behind). The indexer itself decides, batch by
// batch, whether it may go on. Thread-safe; does not own the indexer.
class ContentIndexSchedule {
public:
    // The most one maintenance firing reads.
    static constexpr std::int64_t catchUpBudget = 2'000;

    explicit ContentIndexSchedule(ContentIndexer& indexer) : indexer_(indexer) {}

    // Called after a capture batch or crawl stored new versions; returns at once.
    void capturesStored() { indexer_.request(); }
    // Called by maintenance; returns when the run ends or `stop` is requested.
    ContentIndexer::Report catchUp(std::stop_token stop) { return indexer_.requestAndWait(catchUpBudget, stop); }

private:
    ContentIndexer& indexer_;
};

}  // namespace vosklin
