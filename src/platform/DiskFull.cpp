#include "platform/DiskFull.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/DisplayName.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

// The top of the file system holding `path`: the last parent on the same device.
// A path that does not exist (yet) is judged by its nearest existing parent.
std::string mountPointOf(const std::string& path) {
    std::string at = absolutePath(path);
    struct stat info {};
    while (::stat(at.c_str(), &info) != 0) {
        if (at == "/") return at;
        at = parentPath(at);
    }
    const dev_t device = info.st_dev;
    while (at != "/") {
        const std::string parent = parentPath(at);
        if (::stat(parent.c_str(), &info) != 0 || info.st_dev != device) break;
        at = parent;
    }
    return at;
}

}  // namespace

bool isDiskFullError(int errorNumber) { return errorNumber == ENOSPC || errorNumber == EDQUOT; }

std::string diskFullMessage(const std::string& path) {
    return "The disk holding " + DisplayName::of(path) + " is full (the file system at " +
           DisplayName::of(mountPointOf(path)) + "); free some space there and try again";
}

}  // namespace vosklin
