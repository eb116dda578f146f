#include "support/XfsImage.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace vosklin::test {
namespace {

bool run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

}  // namespace

std::unique_ptr<XfsImage> XfsImage::mount(std::string& whyNot) {
    if (::geteuid() != 0) {
        whyNot = "mounting a loop XFS image needs root";
        return nullptr;
    }
    if (!run("command -v mkfs.xfs")) {
        whyNot = "mkfs.xfs is not installed (Debian package xfsprogs)";
        return nullptr;
    }
    char pattern[] = "/tmp/vosklin-xfs-XXXXXX";
    if (!::mkdtemp(pattern)) {
        whyNot = "cannot make a temporary directory";
        return nullptr;
    }
    std::string directory = pattern;
    std::string image = directory + "/image.xfs";
    std::string mountPoint = directory + "/mnt";
    std::filesystem::create_directory(mountPoint);
    // 320 MiB is about the smallest XFS that mkfs accepts.
    if (!run("truncate -s 320M " + image) || !run("mkfs.xfs -q -m reflink=1 " + image)) {
        std::filesystem::remove_all(directory);
        whyNot = "mkfs.xfs could not make a reflink image";
        return nullptr;
    }
    if (!run("mount -o loop " + image + " " + mountPoint)) {
        std::filesystem::remove_all(directory);
        whyNot = "mounting a loop device is not allowed here";
        return nullptr;
    }
    return std::unique_ptr<XfsImage>(new XfsImage(directory, image, mountPoint));
}

XfsImage::~XfsImage() {
    if (!run("umount " + mountPoint_)) run("umount -l " + mountPoint_);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

}  // namespace vosklin::test
