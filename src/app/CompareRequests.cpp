#include "app/CompareRequests.h"

#include <algorithm>
#include <memory>

#include "app/ApiHandlers.h"
#include "app/ApiRequest.h"
#include "app/FolderRequests.h"
#include "app/UserInstant.h"
#include "bridge/FolderAccess.h"
#include "history/FolderHistory.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/StringTable.h"
#include "store/Sha256.h"
#include "store/StoredPayload.h"

namespace vosklin {

namespace {

std::string hex(const char* bytes, std::size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

nlohmann::json optionalJson(const std::optional<std::int64_t>& value) {
    return value ? nlohmann::json(*value) : nlohmann::json();
}

// One side of a binary comparison: a stored version (whose recorded digest its bytes
// must match) or the live file (whose digest is computed from the bytes read).
struct BinarySide {
    UniqueFd fd;
    std::optional<StoredVersion> version;
    std::int64_t bytesRead = 0;
    Sha256 hash;
    bool ended = false;
};

// "new": "live" compares with the file as it is now.
bool wantsLive(const ApiRequest& request) { return request.has("new") && request.json()["new"] == "live"; }

}  // namespace

CompareRequests::CompareRequests(AppContext& context) : context_(context) {}

nlohmann::json CompareRequests::diffJson(const TextDiff::Result& result) {
    using Kind = TextDiff::Result::Kind;
    using LineKind = TextDiff::Line::Kind;
    nlohmann::json object;
    object["kind"] = result.kind == Kind::lines ? "lines" : result.kind == Kind::summary ? "summary" : "notText";
    if (result.kind == Kind::lines) {
        object["lines"] = nlohmann::json::array();
        for (const auto& line : result.lines) {
            nlohmann::json entry = {{"kind", line.kind == LineKind::context ? "context"
                                             : line.kind == LineKind::added ? "added"
                                                                            : "removed"}};
            entry["text"] = displayableUtf8(line.text);
            entry["oldNumber"] = line.oldNumber ? nlohmann::json(*line.oldNumber) : nlohmann::json();
            entry["newNumber"] = line.newNumber ? nlohmann::json(*line.newNumber) : nlohmann::json();
            object["lines"].push_back(entry);
        }
    } else if (result.kind == Kind::summary) {
        object["newerDiffering"] = result.newerDiffering;
        object["olderDiffering"] = result.olderDiffering;
        object["regions"] = nlohmann::json::array();
        for (const auto& region : result.regions)
            object["regions"].push_back({{"startLine", region.startLine}, {"length", region.length}});
    }
    return object;
}

std::string CompareRequests::versionText(AppContext& context, std::int64_t versionID) {
    const std::string name = std::to_string(versionID);
    std::optional<StoredVersion> version;
    if (context.storeExists()) version = context.readCatalog().version(versionID);
    if (!version) throw ApiError(404, "There is no version " + name);
    if (context.readCatalog().requireFile(version->fileID).isPackage)
        throw ApiError(409, "Version " + name + " is a folder (a package); only files can be compared");
    if (version->logicalBytes > largestCompared)
        throw ApiError(409, "Version " + name + " is too large to compare as text");
    return StoredPayload(context.fileSystem(), context.layout(), *version, false).read();
}

std::optional<OpenedFile> CompareRequests::openLive(AppContext& context, const TrackedFile& file) {
    if (file.deletedAt || file.isPackage) return std::nullopt;
    std::optional<WatchedFolder> folder;
    for (auto& each : context.folders().folders())
        if (each.id == file.folderID) folder = each;
    auto& fileSystem = context.fileSystem();
    if (!folder || !FolderAccess(fileSystem).check(*folder).reachable) return std::nullopt;
    try {
        const UniqueFd directory = fileSystem.openDirectoryBeneath(folder->path, parentPath(file.relativePath));
        return openRegularFile(fileSystem, joinPath(descriptorPath(directory.get()), lastComponent(file.relativePath)));
    } catch (const FileSystemError&) {
        return std::nullopt;  // gone, or a folder on the way replaced by a link or a file
    }
}

RewindPlan CompareRequests::rewindPlan(AppContext& context, const WatchedFolder& folder, double target) {
    RewindPlan plan;
    try {
        plan = context.rewindService().plan(folder, target);
    } catch (const RewindError& error) {
        throw ApiError(error.kind() == RewindError::Kind::nothingToDo ? 409 : 403,
                       StringTable::text(error.textKey()) + " (" + error.what() + ")");
    }
    if (plan.steps.empty()) throw ApiError(409, StringTable::text("rewind.error.nothingToDo"));
    return plan;
}

nlohmann::json CompareRequests::planJson(const RewindPlan& plan, const WatchedFolder& folder) {
    using Action = RewindPlan::Step::Action;
    nlohmann::json steps = nlohmann::json::array();
    for (const auto& step : plan.steps) {
        nlohmann::json entry = {{"action", std::string(toString(step.action))}};
        putPath(entry, "relativePath", step.relativePath);
        entry.update({{"versionID", optionalJson(step.versionID)},
                      {"fileID", optionalJson(step.fileID)},
                      {"isPackage", step.isPackage},
                      {"currentBytes", optionalJson(step.currentBytes)},
                      {"restoredBytes", optionalJson(step.restoredBytes)}});
        steps.push_back(entry);
    }
    return {{"folderID", folder.id},
            {"target", formatInstant(plan.target)},
            {"counts",
             {{"revert", plan.count(Action::revert)},
              {"restore", plan.count(Action::restoreDeleted)},
              {"remove", plan.count(Action::removeAdded)}}},
            {"steps", steps},
            {"planFingerprint", plan.fingerprint()}};
}

double CompareRequests::rewindTarget(AppContext& context, const WatchedFolder& folder, const ApiRequest& request) {
    // A number is the exact instant. Text is as people read it, rounded to the
    // microsecond: it is taken as the moment it names, whose exact instant the
    // state must be read at (a hair earlier would miss the moment's own versions).
    std::optional<double> target;
    if (request.has("target") && request.json()["target"].is_string()) {
        const std::string text = *request.text("target");
        const auto reading = readUserInstant(text);
        if (!reading.instant) throw ApiError(400, userInstantRefusal(text, reading));
        target = reading.instant;
        if (target && context.storeExists())
            target = FolderHistory::load(context.catalog(), folder.id).stateInstant(*target);
    } else {
        // From 1970 to the year 9999: instants outside cannot be shown or stored.
        target = request.number("target", 0, 253402300799.0);
    }
    if (!target) throw ApiError(400, "The request names no instant to go back to");
    return *target;
}

nlohmann::json CompareRequests::diff(const ApiRequest& request) {
    const auto older = request.identifier("old");
    if (!older) throw ApiError(400, "The request names no version to compare");
    const std::string olderText = versionText(context_, *older);
    std::string newerText;
    if (wantsLive(request)) {
        const auto file = context_.readCatalog().requireFile(context_.readCatalog().version(*older)->fileID);
        auto live = openLive(context_, file);
        if (!live) throw ApiError(404, DisplayName::of(file.relativePath) + " is not a file in its folder now");
        if (live->status.size > largestCompared)
            throw ApiError(409, DisplayName::of(file.relativePath) + " is too large to compare as text");
        char buffer[65536];
        while (std::size_t count = context_.fileSystem().read(live->fd.get(), buffer, sizeof buffer)) {
            newerText.append(buffer, count);
            if (std::int64_t(newerText.size()) > largestCompared)
                throw ApiError(409, DisplayName::of(file.relativePath) + " is too large to compare as text");
        }
    } else {
        const auto newer = request.identifier("new");
        if (!newer) throw ApiError(400, "'new' is a version or live");
        newerText = versionText(context_, *newer);
    }
    return diffJson(TextDiff::compare(olderText, newerText));
}

nlohmann::json CompareRequests::binaryCompare(const ApiRequest& request) {
    auto& fileSystem = context_.fileSystem();
    auto storedSide = [&](std::int64_t id) {
        std::optional<StoredVersion> version;
        if (context_.storeExists()) version = context_.readCatalog().version(id);
        if (!version) throw ApiError(404, "There is no version " + std::to_string(id));
        if (context_.readCatalog().requireFile(version->fileID).isPackage)
            throw ApiError(409, "Version " + std::to_string(id) +
                                    " is a folder (a package); only files can be compared");
        auto side = std::make_unique<BinarySide>();
        side->fd = fileSystem.openForReading(StoredPayload(fileSystem, context_.layout(), *version, false).locate());
        side->version = std::move(version);
        return side;
    };
    const auto olderID = request.identifier("old");
    if (!olderID) throw ApiError(400, "The request names no version to compare");
    auto older = storedSide(*olderID);
    std::unique_ptr<BinarySide> newer;
    if (wantsLive(request)) {
        const auto file = context_.readCatalog().requireFile(older->version->fileID);
        auto live = openLive(context_, file);
        if (!live) throw ApiError(404, DisplayName::of(file.relativePath) + " is not a file in its folder now");
        newer = std::make_unique<BinarySide>();
        newer->fd = std::move(live->fd);
    } else {
        const auto newerID = request.identifier("new");
        if (!newerID) throw ApiError(400, "'new' is a version or live");
        newer = storedSide(*newerID);
    }

    // Both sides to their ends, a chunk at a time: the live side for its digest, a stored one
    // to check it against its recorded digest before any of its bytes are shown.
    std::unique_ptr<char[]> olderChunk(new char[chunkSize]), newerChunk(new char[chunkSize]);
    std::optional<std::int64_t> firstDifference;
    for (std::uint64_t offset = 0; !older->ended || !newer->ended; offset += chunkSize) {
        std::size_t counts[2] = {0, 0};
        BinarySide* sides[2] = {older.get(), newer.get()};
        char* chunks[2] = {olderChunk.get(), newerChunk.get()};
        for (int i = 0; i < 2; ++i) {
            auto& side = *sides[i];
            if (side.ended) continue;
            counts[i] = fileSystem.readAt(side.fd.get(), chunks[i], chunkSize, offset);
            side.ended = counts[i] < chunkSize;  // fewer only at the end
            side.hash.update(chunks[i], counts[i]);
            side.bytesRead += std::int64_t(counts[i]);
            if (side.version && side.bytesRead > side.version->logicalBytes)
                throw StoredPayloadError::damaged(side.version->id);
        }
        if (firstDifference) continue;
        const std::size_t common = std::min(counts[0], counts[1]);
        const auto mismatch = std::mismatch(chunks[0], chunks[0] + common, chunks[1]);
        if (mismatch.first != chunks[0] + common)
            firstDifference = std::int64_t(offset) + (mismatch.first - chunks[0]);
        else if (counts[0] != counts[1])  // one ends here, the other goes on
            firstDifference = std::int64_t(offset + common);
    }
    nlohmann::json answer;
    for (auto [side, key] : {std::pair{older.get(), "old"}, {newer.get(), "new"}}) {
        const std::string digest = side->hash.hex();
        if (side->version && digest != side->version->digest) throw StoredPayloadError::damaged(side->version->id);
        answer[key] = {{"logicalBytes", side->bytesRead}, {"digest", digest}};
        if (side->version) answer[key]["versionID"] = side->version->id;
    }
    answer["firstDifference"] = firstDifference ? nlohmann::json(*firstDifference) : nlohmann::json();
    answer["window"] = nullptr;
    if (firstDifference) {
        // Half the window before the difference, from the start of a 16-byte row.
        const std::int64_t before = std::max<std::int64_t>(0, *firstDifference - std::int64_t(windowSize / 2));
        const std::uint64_t from = std::uint64_t(before) & ~std::uint64_t(15);
        char bytes[windowSize];
        answer["window"] = {{"offset", from}};
        for (auto [side, key] : {std::pair{older.get(), "old"}, {newer.get(), "new"}})
            answer["window"][key] = hex(bytes, fileSystem.readAt(side->fd.get(), bytes, windowSize, from));
    }
    return answer;
}

nlohmann::json CompareRequests::plan(const ApiRequest& request) {
    const auto path = request.path("folder");
    if (!path) throw ApiError(400, "The request names no folder");
    const WatchedFolder folder = FolderRequests::requireFolder(context_, *path);
    auto reach = FolderAccess(context_.fileSystem()).check(folder);
    if (!reach.reachable) throw ApiError(409, DisplayName::of(folder.path) + " " + reach.reason);
    return planJson(rewindPlan(context_, folder, rewindTarget(context_, folder, request)), folder);
}

std::optional<nlohmann::json> CompareRequests::answer(const std::string& name, const ApiRequest& request) {
    if (name == "diff") return diff(request);
    if (name == "bincompare") return binaryCompare(request);
    if (name == "rewindplan") return plan(request);
    return std::nullopt;
}

}  // namespace vosklin
