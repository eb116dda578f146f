#include "store/VersionSidecar.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "platform/AtomicFile.h"
#include "platform/Instant.h"
#include "platform/JsonInteger.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"

namespace vosklin {

std::string VersionSidecar::encode() const {
    nlohmann::json json = nlohmann::json::object();  // keys sort themselves
    json["version"] = version;
    putPath(json, "originalPath", originalPath);
    json["capturedAt"] = formatInstantSeconds(capturedAt);
    json["digest"] = digest;
    json["logicalBytes"] = logicalBytes;
    json["method"] = std::string(toString(method));
    json["verified"] = verified;
    putPath(json, "payloadName", payloadName);
    return json.dump(2) + "\n";
}

namespace {

bool isDigest(std::string_view text) {
    return text.size() == 64 &&
           std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

template <class T>
T integerAt(const nlohmann::json& json, const char* key) {
    if (auto number = jsonInteger<T>(json.at(key))) return *number;
    throw SidecarError(std::string(key) + " is not an integer in range");
}

// What a rebuilt catalog will trust is checked here: the payload's name must
// stay inside its slot, and the digest must be one a payload can have.
void requireSound(const VersionSidecar& sidecar) {
    if (sidecar.version != 1) throw SidecarError("Unknown sidecar format " + std::to_string(sidecar.version));
    if (!isAbsolutePath(sidecar.originalPath)) throw SidecarError("originalPath is not an absolute path");
    if (!isDigest(sidecar.digest)) throw SidecarError("digest is not 64 lowercase hexadecimal characters");
    if (sidecar.logicalBytes < 0) throw SidecarError("logicalBytes is negative");
    const std::string& name = sidecar.payloadName;
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos)
        throw SidecarError("payloadName is not a single file name");
}

}  // namespace

VersionSidecar VersionSidecar::decode(std::string_view text) {
    try {
        auto json = nlohmann::json::parse(text);
        VersionSidecar sidecar;
        sidecar.version = integerAt<int>(json, "version");
        sidecar.originalPath = getPath(json, "originalPath");
        auto instant = parseInstant(json.at("capturedAt").get<std::string>());
        if (!instant) throw SidecarError("capturedAt is not an ISO 8601 instant");
        sidecar.capturedAt = *instant;
        sidecar.digest = json.at("digest").get<std::string>();
        sidecar.logicalBytes = integerAt<std::int64_t>(json, "logicalBytes");
        const std::string method = json.at("method").get<std::string>();
        sidecar.method = cloneMethodFromString(method);
        if (toString(sidecar.method) != method) throw SidecarError("Unknown method \"" + method + "\"");
        sidecar.verified = json.at("verified").get<bool>();
        sidecar.payloadName = getPath(json, "payloadName");
        requireSound(sidecar);
        return sidecar;
    } catch (const nlohmann::json::exception& error) {
        throw SidecarError(std::string("Not a version sidecar: ") + error.what());
    } catch (const std::invalid_argument& error) {
        throw SidecarError(std::string("Not a version sidecar: ") + error.what());
    }
}

void VersionSidecar::write(FileSystem& fileSystem, const std::string& slotDirectory) const {
    writeFileAtomically(fileSystem, joinPath(slotDirectory, fileName), encode(), 0600, Durability::deferred);
}

VersionSidecar VersionSidecar::read(FileSystem& fileSystem, const std::string& slotDirectory) {
    return decode(readWholeFile(fileSystem, joinPath(slotDirectory, fileName)));
}

}  // namespace vosklin
