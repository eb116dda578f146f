#include "search/ContentIndexer.h"

#include <chrono>
#include <set>
#include <utility>

#include "platform/AtomicFile.h"
#include "platform/FileSystemError.h"
#include "platform/IoPriority.h"

namespace vosklin {

ContentIndexer::ContentIndexer(Collaborators collaborators) : ContentIndexer(collaborators, Pacing()) {}

ContentIndexer::ContentIndexer(Collaborators collaborators, Pacing pacing) : c_(collaborators), pacing_(pacing) {}

ContentIndexer::~ContentIndexer() { shutDown(); }

void ContentIndexer::start() {
    if (thread_.joinable() || isShutDown_) return;
    thread_ = std::jthread([this](std::stop_token stop) { loop(stop); });
}

void ContentIndexer::request(std::int64_t budget) {
    {
        std::lock_guard guard(lock_);
        ++requested_;
        requestedBudget_ = std::max(requestedBudget_, budget);
    }
    wake_.notify_all();
}

ContentIndexer::Report ContentIndexer::requestAndWait(std::int64_t budget, std::stop_token stop) {
    if (!thread_.joinable()) return runNow(budget, stop);
    std::unique_lock guard(lock_);
    const std::uint64_t ticket = ++requested_;
    requestedBudget_ = std::max(requestedBudget_, budget);
    wake_.notify_all();
    // The caller's stop also cancels the run serving it.
    callerStop_ = stop;
    wake_.wait(guard, stop, [&] { return served_ >= ticket || isShutDown_; });
    if (served_ < ticket) {
        Report report;
        report.end = End::cancelled;
        return report;
    }
    return lastReport_;
}

ContentIndexer::Report ContentIndexer::runNow(std::int64_t budget, std::stop_token stop) {
    std::lock_guard running(runLock_);
    return run(budget, stop);
}

void ContentIndexer::clear() {
    std::lock_guard guard(lock_);
    ++generation_;
    floor_ = 0;
    c_.catalog.clearContentIndex();
    wake_.notify_all();
}

void ContentIndexer::shutDown() {
    isShutDown_ = true;
    wake_.notify_all();
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
    }
}

std::string ContentIndexer::describe(End end) {
    switch (end) {
        case End::nothingLeft: return "nothing left";
        case End::budgetSpent: return "budget spent";
        case End::disabled: return "content search is turned off";
        case End::paused: return "recording is paused";
        case End::cancelled: return "cancelled";
        case End::constrained: return "the machine saves power or runs hot";
    }
    return "";
}

void ContentIndexer::loop(std::stop_token stop) {
    IoPriority::makeThisThreadIdle();
    std::unique_lock guard(lock_);
    while (!stop.stop_requested() && !isShutDown_) {
        wake_.wait(guard, stop, [&] { return requested_ > served_ || isShutDown_; });
        if (stop.stop_requested() || isShutDown_) break;
        const std::uint64_t serving = requested_;
        const std::int64_t budget = std::exchange(requestedBudget_, 0);
        const std::stop_token callerStop = callerStop_;
        guard.unlock();
        Report report;
        {
            std::lock_guard running(runLock_);
            // A run serving a waiting caller ends when that caller gives up too.
            std::stop_source both;
            std::stop_callback ownStop(stop, [&] { both.request_stop(); });
            std::stop_callback theirs(callerStop, [&] { both.request_stop(); });
            report = run(budget, both.get_token());
        }
        guard.lock();
        lastReport_ = report;
        served_ = serving;
        callerStop_ = {};
        wake_.notify_all();
    }
}

std::optional<ContentIndexer::End> ContentIndexer::reasonToStop(std::int64_t remaining, std::stop_token stop,
                                                                 std::uint64_t generation) {
    if (remaining <= 0) return End::budgetSpent;
    if (c_.settings.flag("vosklin.contentSearchDisabled").value_or(false)) return End::disabled;
    if (c_.settings.flag("vosklin.isPaused").value_or(false)) return End::paused;
    {
        std::lock_guard guard(lock_);
        if (isShutDown_ || stop.stop_requested() || generation != generation_) return End::cancelled;
    }
    if (c_.machine.isLowPower()) return End::constrained;
    const auto heat = c_.machine.thermalState();
    if (heat == ThermalState::serious || heat == ThermalState::critical) return End::constrained;
    return std::nullopt;
}

ContentIndexer::Report ContentIndexer::run(std::int64_t budget, std::stop_token stop) {
    Report report;
    std::uint64_t generation;
    std::int64_t floor;
    {
        std::lock_guard guard(lock_);
        generation = generation_;
        floor = floor_;
    }
    settleCrashedAttempt(report);
    // The bound is exclusive, so one past the newest version includes it.
    const std::int64_t top = c_.catalog.highestVersionID() + 1;
    std::int64_t upper = top;
    std::int64_t remaining = budget;
    for (bool first = true;; first = false) {
        if (upper <= floor + 1) {
            report.end = End::nothingLeft;
            break;
        }
        if (auto reason = reasonToStop(remaining, stop, generation)) {
            report.end = *reason;
            break;
        }
        if (!first && !pause(stop, generation)) {
            report.end = End::cancelled;
            break;
        }
        const auto batch = c_.catalog.nextBatchToIndex(upper, floor, std::min(pacing_.batchSize, remaining));
        if (batch.empty()) {
            report.end = End::nothingLeft;
            break;
        }
        std::set<std::string> settled;  // a digest twice in one batch is read once
        for (const auto& candidate : batch) {
            if (settled.insert(candidate.digest).second) indexOne(candidate, generation, report);
            ++report.versions;
        }
        remaining -= std::int64_t(batch.size());
        upper = batch.back().versionID;
    }
    if (report.end == End::nothingLeft) {
        std::lock_guard guard(lock_);
        // Everything up to the newest version at the start has been looked at.
        if (generation == generation_) floor_ = std::max(floor_, top - 1);
    }
    clearAttempt();
    if (report.versions > 0)
        c_.logger.info("Indexed " + std::to_string(report.versions) + " versions for content search");
    return report;
}

void ContentIndexer::settleCrashedAttempt(Report& report) {
    std::string digest;
    try {
        digest = readWholeFile(c_.fileSystem, c_.layout.indexingAttemptPath());
    } catch (const FileSystemError&) {
        return;  // none: the last run ended normally
    }
    if (!digest.empty() && digest.back() == '\n') digest.pop_back();
    if (!digest.empty()) {
        c_.logger.info("Indexing a version failed: reading its text stopped the process (digest " + digest + ")");
        std::lock_guard guard(lock_);
        if (c_.catalog.storeContentResult(digest, ContentState::failed, c_.clock.now(), 0, std::nullopt))
            ++report.failed;
    }
    clearAttempt();
}

void ContentIndexer::clearAttempt() {
    try {
        c_.fileSystem.removeFile(c_.layout.indexingAttemptPath());
    } catch (const FileSystemError&) {
        // Already gone.
    }
}

void ContentIndexer::indexOne(const PendingContent& candidate, std::uint64_t generation, Report& report) {
    ContentState state = ContentState::noText;
    std::optional<std::string> text;
    try {
        // Not synced: it only has to outlive this process, not the machine.
        writeFileAtomically(c_.fileSystem, c_.layout.indexingAttemptPath(), candidate.digest + "\n", 0644,
                            Durability::deferred);
    } catch (const FileSystemError& error) {
        c_.logger.error(std::string("Could not note the text being read: ") + error.what());
    }
    try {
        text = c_.extractor.extract(c_.layout.payloadPath(candidate.slot, candidate.payloadName), candidate.isPackage);
        if (text && text->empty()) text.reset();
        state = text ? ContentState::indexed : ContentState::noText;
    } catch (const std::exception& error) {
        state = ContentState::failed;
        text.reset();
        c_.logger.info(std::string("Indexing a version failed: ") + error.what());
    }
    // Under the lock that clear() takes, so a clear cannot fall between the check and the store.
    std::lock_guard guard(lock_);
    if (generation != generation_) return;
    const auto bytes = text ? std::int64_t(text->size()) : 0;
    if (!c_.catalog.storeContentResult(candidate.digest, state, c_.clock.now(), bytes, text)) return;
    if (state == ContentState::indexed) ++report.indexed;
    else if (state == ContentState::noText) ++report.withoutText;
    else ++report.failed;
}

bool ContentIndexer::pause(std::stop_token stop, std::uint64_t generation) {
    if (pacing_.pauseSeconds <= 0) return true;
    std::unique_lock guard(lock_);
    wake_.wait_for(guard, stop, std::chrono::duration<double>(pacing_.pauseSeconds),
                   [&] { return isShutDown_.load() || generation != generation_; });
    return !stop.stop_requested() && !isShutDown_ && generation == generation_;
}

}  // namespace vosklin
