#pragma once

#include <string>

namespace vosklin::test {

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it on destruction.
class TempDirectory {
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }

    // Writes a file (creating parent directories) and returns its absolute path.
    std::string write(const std::string& relative, const std::string& contents) const;

private:
    std::string path_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& contents);
// Sets a file's access and modification times to `instant` (whole seconds).
void setModified(const std::string& path, double instant);

}  // namespace vosklin::test
