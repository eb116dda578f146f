#include "store/PayloadWriter.h"

#include <cerrno>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "store/CloneError.h"
#include "store/VersionSidecar.h"

namespace vosklin {

PayloadWriter::PayloadWriter(VersionStoreLayout& layout, PayloadCloner& cloner, PayloadDigest& digest)
    : layout_(layout), cloner_(cloner), digest_(digest) {}

std::string PayloadWriter::payloadNameFor(const std::string& sourceName) {
    const std::string sidecar(VersionSidecar::fileName);
    // The sidecar and its temporary ("vosklin-version.json.tmp-...") own these names in every slot.
    if (sourceName == sidecar || sourceName.starts_with(sidecar + ".")) return "payload-" + sourceName;
    return sourceName;
}

WrittenPayload PayloadWriter::write(std::int64_t fileID, double at, const std::string& source, bool isPackage,
                                   std::stop_token stop) {
    WrittenPayload payload;
    payload.slot = layout_.makeSlot(fileID, at);
    payload.payloadName = payloadNameFor(lastComponent(source));
    payload.payloadPath = joinPath(payload.slot.directory, payload.payloadName);
    try {
        payload.clone = cloner_.clone(source, payload.payloadPath, stop);
        payload.digest = isPackage ? digest_.packageDigest(payload.payloadPath, stop)
                                   : digest_.fileDigest(payload.payloadPath, stop);
    } catch (const FileSystemError& error) {
        layout_.removeSlot(payload.slot.relativePath);
        if (error.errorNumber() == ECANCELED) throw CloneError::cancelled(source);
        throw;
    } catch (...) {
        layout_.removeSlot(payload.slot.relativePath);
        throw;
    }
    return payload;
}

}  // namespace vosklin
