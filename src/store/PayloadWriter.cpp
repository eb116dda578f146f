#include "store/PayloadWriter.h"

#include <cerrno>

#include "platform/FileSystemError.h"
#include "platform/PathNames.h"
#include "store/CloneError.h"

namespace vosklin {

PayloadWriter::PayloadWriter(VersionStoreLayout& layout, PayloadCloner& cloner, PayloadDigest& digest)
    : layout_(layout), cloner_(cloner), digest_(digest) {}

WrittenPayload PayloadWriter::write(std::int64_t fileID, double at, const std::string& source, bool isPackage,
                                   std::stop_token stop) {
    WrittenPayload payload;
    payload.slot = layout_.makeSlot(fileID, at);
    payload.payloadName = lastComponent(source);
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
