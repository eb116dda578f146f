#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "capture/CaptureUnitResolver.h"
#include "capture/FSEventRecord.h"
#include "capture/SettleGate.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"

namespace vosklin {

// Turns a stream of change records into capture units that have stopped changing.
//
// Records are resolved to units (a file inside a package is the package) and
// merged into a pending table keyed by the unit's path, so a burst of writes
// makes one pending unit. A flush probes pending units, oldest first, and
// releases those that have settled, at most `maximumUnitsPerFlush` at a time:
// a unit is ready once it has waited the longer of the merge window and one
// second per 20 MB of its size, never more than 60 s; or earlier, once two
// probes agree, its size is not zero, and either its modification time lies
// more than 120 s back or it has waited the merge window; or at once when it
// has vanished (the capture reports it missing). Paths that Vosklin is about
// to write itself can be suppressed for a few seconds.
//
// Time comes from the injected clock. Not thread-safe: the engine drives it
// from its one event-loop thread.
class WatchCoordinator {
public:
    struct Settings {
        double mergeWindow = 10;     // seconds
        double probeInterval = 0.75;  // intended spacing of probes; flushes come on the engine's tick
        std::size_t maximumUnitsPerFlush = 200;
        double suppressionWindow = 5;
    };

    struct Pending {
        WatchTarget target;
        CaptureUnitResolver::Unit unit;
        double firstSeen = 0;
        std::optional<SettleGate::Probe> lastProbe;
        std::optional<double> probedAt;
    };

    struct Released {
        WatchTarget target;
        CaptureUnitResolver::Unit unit;
    };

    WatchCoordinator(FileSystem& fileSystem, Clock& clock, Settings settings, ExcludeRules excludes,
                     PackageKinds packages);

    // A unit under a target is gone (the engine tombstones it, and what was below it).
    std::function<void(const WatchTarget&, const std::string& path)> onDelete;

    // One resolver per watched root; pending units of targets no longer present are dropped.
    void setTargets(const std::vector<WatchTarget>& targets);
    void take(const std::vector<FSEventRecord>& records);
    std::vector<Released> flush();
    // A file or folder moved: pending units at or below `from` wait on under `to`,
    // so a change made just before a rename is not lost.
    void rename(const std::string& from, const std::string& to);
    // Before Vosklin writes into a watched folder itself: its own events are not captures.
    void suppress(const std::vector<std::string>& paths);
    // Vosklin is writing `path`, or a folder around it, within the suppression window:
    // no record about it counts, whatever its kind (a rename included).
    bool isSuppressed(const std::string& path);
    // The unit a path inside a target resolves to (the package around it, or the
    // file itself); none for a transient or excluded name, a plain folder, or a
    // path outside every target.
    std::optional<CaptureUnitResolver::Unit> unitFor(const std::string& path) const;
    // Outside every target, or excluded (a folder nothing in which is ever tracked).
    bool isExcluded(const std::string& path) const;

    std::size_t pendingCount() const { return pending_.size(); }
    // The oldest first-seen instant among pending units, if any.
    std::optional<double> oldestFirstSeen() const;
    const Settings& settings() const { return settings_; }

private:
    const WatchTarget* targetFor(const std::string& path) const;

    FileSystem& fileSystem_;
    Clock& clock_;
    Settings settings_;
    ExcludeRules excludes_;
    PackageKinds packages_;
    std::vector<std::pair<WatchTarget, CaptureUnitResolver>> resolvers_;
    std::unordered_map<std::string, Pending> pending_;
    std::uint64_t arrivals_ = 0;  // breaks ties between units first seen at the same instant
    std::unordered_map<std::string, std::uint64_t> arrivalOrder_;
    std::map<std::string, std::pair<std::uint64_t, double>> suppressed_;  // path -> (generation, expiry)
    std::uint64_t writeGeneration_ = 0;
};

}  // namespace vosklin
