#include "store/PayloadWriter.h"

#include "platform/PathNames.h"

namespace vosklin {

PayloadWriter::PayloadWriter(VersionStoreLayout& layout, PayloadCloner& cloner, PayloadDigest& digest)
    : layout_(layout), cloner_(cloner), digest_(digest) {}

WrittenPayload PayloadWriter::write(std::int64_t fileID, double at, const std::string& source, bool isPackage) {
    WrittenPayload payload;
    payload.slot = layout_.makeSlot(fileID, at);
    payload.payloadName = lastComponent(source);
    payload.payloadPath = joinPath(payload.slot.directory, payload.payloadName);
    try {
        payload.clone = cloner_.clone(source, payload.payloadPath);
        payload.digest =
            isPackage ? digest_.packageDigest(payload.payloadPath) : digest_.fileDigest(payload.payloadPath);
    } catch (...) {
        layout_.removeSlot(payload.slot.relativePath);
        throw;
    }
    return payload;
}

}  // namespace vosklin
