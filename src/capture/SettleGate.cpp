#include "capture/SettleGate.h"

#include "platform/FileSystemError.h"

namespace vosklin {

std::optional<SettleGate::Probe> SettleGate::probe(FileSystem& fileSystem, const std::string& path) {
    std::optional<FileStatus> status;
    try {
        status = fileSystem.linkStatus(path);
    } catch (const FileSystemError&) {
        return std::nullopt;
    }
    if (!status) return std::nullopt;
    Probe probe;
    probe.size = status->size;
    probe.modifiedAt = status->modifiedAt();
    probe.inode = status->inode;
    try {
        probe.isQuarantined = fileSystem.linkAttribute(path, "user.xdg.origin.url").has_value();
    } catch (const FileSystemError&) {
        probe.isQuarantined = false;
    }
    return probe;
}

}  // namespace vosklin
