#pragma once

#include <memory>
#include <string>

namespace vosklin::test {

// A small XFS file system with reflink, made in an image file and loop-mounted
// for tests that need real clones. Unmounted and deleted on destruction, also
// when the test failed.
class XfsImage {
public:
    // Nothing, with `whyNot` filled in, when this machine cannot do it (not
    // root, no mkfs.xfs, mounting refused...).
    static std::unique_ptr<XfsImage> mount(std::string& whyNot);
    ~XfsImage();

    const std::string& mountPoint() const { return mountPoint_; }

private:
    XfsImage(std::string directory, std::string image, std::string mountPoint)
        : directory_(std::move(directory)), image_(std::move(image)), mountPoint_(std::move(mountPoint)) {}

    std::string directory_;
    std::string image_;
    std::string mountPoint_;
};

}  // namespace vosklin::test
