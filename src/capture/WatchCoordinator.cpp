#include "capture/WatchCoordinator.h"

#include <algorithm>

#include "platform/PathNames.h"

namespace vosklin {
namespace {

constexpr double bytesPerSecondOfWait = 20'000'000;  // a large file gets one second for every 20 MB
constexpr double longestWait = 60;
constexpr double oldFileAge = 120;

}  // namespace

WatchCoordinator::WatchCoordinator(FileSystem& fileSystem, Clock& clock, Settings settings, ExcludeRules excludes,
                                   PackageKinds packages)
    : fileSystem_(fileSystem),
      clock_(clock),
      settings_(settings),
      excludes_(std::move(excludes)),
      packages_(std::move(packages)) {}

void WatchCoordinator::setTargets(const std::vector<WatchTarget>& targets) {
    resolvers_.clear();
    for (const auto& target : targets)
        resolvers_.emplace_back(target, CaptureUnitResolver(target.root, excludes_, packages_, fileSystem_));
    std::erase_if(pending_, [&](const auto& entry) {
        return std::find(targets.begin(), targets.end(), entry.second.target) == targets.end();
    });
}

const WatchTarget* WatchCoordinator::targetFor(const std::string& path) const {
    for (const auto& [target, resolver] : resolvers_) {
        std::string relative;
        if (relativeTo(resolver.root(), path, relative)) return &target;
    }
    return nullptr;
}

void WatchCoordinator::suppress(const std::vector<std::string>& paths) {
    ++writeGeneration_;
    const double expiry = clock_.now() + settings_.suppressionWindow;
    for (const auto& path : paths) suppressed_[lexicallyNormal(path)] = {writeGeneration_, expiry};
}

bool WatchCoordinator::isSuppressed(const std::string& path) {
    const double now = clock_.now();
    std::erase_if(suppressed_, [&](const auto& entry) { return entry.second.second <= now; });
    if (suppressed_.empty()) return false;
    // A suppressed path covers what is inside it (a package or folder being written back).
    for (std::string candidate = lexicallyNormal(path);; candidate = parentPath(candidate)) {
        if (suppressed_.count(candidate)) return true;
        if (candidate == "/" || candidate == ".") return false;
    }
}

std::optional<CaptureUnitResolver::Unit> WatchCoordinator::unitFor(const std::string& path) const {
    const std::string normal = lexicallyNormal(path);
    for (const auto& [target, resolver] : resolvers_) {
        std::string relative;
        if (relativeTo(resolver.root(), normal, relative)) return resolver.resolve(normal);
    }
    return std::nullopt;
}

bool WatchCoordinator::isExcluded(const std::string& path) const {
    const std::string normal = lexicallyNormal(path);
    for (const auto& [target, resolver] : resolvers_) {
        std::string relative;
        if (relativeTo(resolver.root(), normal, relative)) return excludes_.excludes(relative);
    }
    return true;
}

void WatchCoordinator::take(const std::vector<FSEventRecord>& records) {
    const double now = clock_.now();
    for (const auto& record : records) {
        const std::string path = lexicallyNormal(record.path);
        if (isSuppressed(path)) continue;
        for (const auto& [target, resolver] : resolvers_) {
            std::string relative;
            if (!relativeTo(resolver.root(), path, relative)) continue;
            if (record.has(FSEventFlag::removed) && !fileSystem_.linkStatus(path)) {
                // Gone: whatever was recorded at or below it is deleted. A file
                // removed from inside a package is a change of the package.
                auto unit = resolver.resolve(path);
                if (!unit || unit->path == path) {
                    pending_.erase(path);
                    if (onDelete && !excludes_.excludes(relative)) onDelete(target, path);
                    break;
                }
            }
            auto unit = resolver.resolve(path);
            if (!unit) break;
            auto [entry, inserted] = pending_.try_emplace(unit->path, Pending{target, *unit, now, std::nullopt,
                                                                              std::nullopt});
            if (inserted) arrivalOrder_[unit->path] = arrivals_++;
            break;
        }
    }
}

void WatchCoordinator::rename(const std::string& from, const std::string& to) {
    std::vector<std::string> moving;
    for (const auto& [path, pending] : pending_) {
        std::string relative;
        if (path == from || relativeTo(from, path, relative)) moving.push_back(path);
    }
    for (const auto& path : moving) {
        std::string relative;
        const std::string moved = path == from ? to : (relativeTo(from, path, relative), joinPath(to, relative));
        Pending pending = pending_.at(path);
        pending.unit.path = moved;
        pending.lastProbe.reset();
        const std::uint64_t order = arrivalOrder_[path];
        pending_.erase(path);
        arrivalOrder_.erase(path);
        if (!pending_.count(moved)) {
            pending_.emplace(moved, std::move(pending));
            arrivalOrder_[moved] = order;
        }
    }
}

std::optional<double> WatchCoordinator::oldestFirstSeen() const {
    std::optional<double> oldest;
    for (const auto& [path, pending] : pending_)
        if (!oldest || pending.firstSeen < *oldest) oldest = pending.firstSeen;
    return oldest;
}

std::vector<WatchCoordinator::Released> WatchCoordinator::flush() {
    std::vector<std::string> order;
    order.reserve(pending_.size());
    for (const auto& [path, pending] : pending_) order.push_back(path);
    std::sort(order.begin(), order.end(), [&](const std::string& a, const std::string& b) {
        const auto& first = pending_.at(a);
        const auto& second = pending_.at(b);
        if (first.firstSeen != second.firstSeen) return first.firstSeen < second.firstSeen;
        return arrivalOrder_[a] < arrivalOrder_[b];
    });

    const double now = clock_.now();
    std::vector<Released> released;
    for (const auto& path : order) {
        if (released.size() >= settings_.maximumUnitsPerFlush) break;
        Pending& pending = pending_.at(path);
        const auto probe = SettleGate::probe(fileSystem_, pending.unit.path);
        const double age = now - pending.firstSeen;
        bool ready = false;
        if (!probe) {
            ready = true;  // vanished: the capture will say it is missing
        } else {
            double window = std::max(settings_.mergeWindow, double(probe->size) / bytesPerSecondOfWait);
            ready = window >= longestWait ? age >= longestWait : age >= window;
            if (!ready && pending.lastProbe && probe->size != 0 && probe->size == pending.lastProbe->size &&
                probe->modifiedAt == pending.lastProbe->modifiedAt && probe->inode == pending.lastProbe->inode &&
                (probe->modifiedAt < now - oldFileAge || age >= settings_.mergeWindow)) {
                ready = true;
            }
        }
        if (ready) {
            released.push_back({pending.target, pending.unit});
            pending_.erase(path);
            arrivalOrder_.erase(path);
        } else {
            pending.lastProbe = probe;
            pending.probedAt = now;
        }
    }
    return released;
}

}  // namespace vosklin
