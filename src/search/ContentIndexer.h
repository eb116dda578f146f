#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "catalog/VersionCatalog.h"
#include "platform/Clock.h"
#include "platform/Logger.h"
#include "platform/MachineConditions.h"
#include "platform/Settings.h"
#include "search/TextExtractor.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// Extracts the text of stored versions into the full-text index, once per
// distinct digest, newest first, in small paced batches.
//
// Invariants:
//  1. One run at a time: runs are serialised by `runLock_`, whoever starts them.
//  2. Progress lives in the catalog (content_texts): a run that ends early
//     loses nothing, and a digest with any state is never attempted again
//     until the index is cleared.
//  3. `floor_` only rises when a run has walked all the way down to it, so
//     every version at or below it had its digest looked at; clear() drops it
//     to 0.
//  4. While a digest's text is read, the store's "indexing.attempt" names it.
//     A reader that crashes the process (a hostile document meeting a library
//     bug) leaves the file behind; the next run records that digest as failed
//     before anything else, so one document cannot bring the daemon down twice.
//  5. A result is stored only while the run's generation is current and in
//     the same transaction that checks a version still holds the digest, so
//     neither a clear nor a prune racing the run leaves text behind.
//
// Before every batch a run stops, in this order, when: it has nothing left
// (walked to the floor, or its budget is spent); "vosklin.contentSearchDisabled"
// is true; "vosklin.isPaused" is true; it is cancelled (shutDown, the caller's
// stop token, a clear); the machine saves power or runs serious or critical heat.
//
// In the daemon, start() gives the indexer its own thread (idle I/O class,
// lowest CPU priority); request() asks it for a run and returns at once, and a
// request made during a run is served by a new run after it. In a command's
// own process, runNow() runs on the caller's thread. Thread-safe.
class ContentIndexer {
public:
    struct Collaborators {
        VersionCatalog& catalog;
        const VersionStoreLayout& layout;
        FileSystem& fileSystem;
        const TextExtractor& extractor;
        Settings& settings;
        MachineConditions& machine;
        Clock& clock;
        Logger& logger;
    };
    struct Pacing {
        std::int64_t batchSize = 10;
        // Between batches, so that indexing never runs flat out.
        double pauseSeconds = 0.2;
    };
    enum class End { nothingLeft, budgetSpent, disabled, paused, cancelled, constrained };
    struct Report {
        std::int64_t versions = 0;  // versions whose digest this run settled (stored or found gone)
        std::int64_t indexed = 0;
        std::int64_t withoutText = 0;
        std::int64_t failed = 0;
        End end = End::nothingLeft;
    };
    static constexpr std::int64_t unlimited = std::numeric_limits<std::int64_t>::max();

    explicit ContentIndexer(Collaborators collaborators);
    ContentIndexer(Collaborators collaborators, Pacing pacing);
    ~ContentIndexer();
    ContentIndexer(const ContentIndexer&) = delete;
    ContentIndexer& operator=(const ContentIndexer&) = delete;

    void start();
    // Asks the indexer's thread for a run of at most `budget` versions.
    void request(std::int64_t budget = unlimited);
    // Asks for a run and waits for it to end (or for `stop`, which also cancels it).
    Report requestAndWait(std::int64_t budget, std::stop_token stop = {});
    // One run on the caller's thread (after any run in progress).
    Report runNow(std::int64_t budget, std::stop_token stop = {});
    // Empties the index: every digest is pending again, a running pass stores nothing more.
    void clear();
    // No batch runs after this; a run in progress ends at its next check. Joins the thread.
    void shutDown();

    static std::string describe(End end);

private:
    Report run(std::int64_t budget, std::stop_token stop);
    std::optional<End> reasonToStop(std::int64_t remaining, std::stop_token stop, std::uint64_t generation);
    void indexOne(const PendingContent& candidate, std::uint64_t generation, Report& report);
    // Records as failed the digest an earlier run was reading when the process died.
    void settleCrashedAttempt(Report& report);
    void clearAttempt();
    // Waits the pause between batches; false when the run was cancelled meanwhile.
    bool pause(std::stop_token stop, std::uint64_t generation);
    void loop(std::stop_token stop);

    Collaborators c_;
    Pacing pacing_;
    std::mutex runLock_;  // held for a whole run

    std::mutex lock_;  // guards what follows
    std::condition_variable_any wake_;
    std::int64_t floor_ = 0;
    std::uint64_t generation_ = 0;
    std::uint64_t requested_ = 0;  // tickets handed out
    std::uint64_t served_ = 0;     // tickets whose run has ended
    std::int64_t requestedBudget_ = 0;
    std::stop_token callerStop_;  // of the caller waiting for the next run, if any
    Report lastReport_;
    std::atomic<bool> isShutDown_{false};
    std::jthread thread_;
};

}  // namespace vosklin
