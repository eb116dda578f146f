#include "store/VersionSidecar.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "platform/AtomicFile.h"
#include "platform/Instant.h"
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

VersionSidecar VersionSidecar::decode(std::string_view text) {
    try {
        auto json = nlohmann::json::parse(text);
        VersionSidecar sidecar;
        sidecar.version = json.at("version").get<int>();
        sidecar.originalPath = getPath(json, "originalPath");
        auto instant = parseInstant(json.at("capturedAt").get<std::string>());
        if (!instant) throw SidecarError("capturedAt is not an ISO 8601 instant");
        sidecar.capturedAt = *instant;
        sidecar.digest = json.at("digest").get<std::string>();
        sidecar.logicalBytes = json.at("logicalBytes").get<std::int64_t>();
        sidecar.method = cloneMethodFromString(json.at("method").get<std::string>());
        sidecar.verified = json.at("verified").get<bool>();
        sidecar.payloadName = getPath(json, "payloadName");
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
