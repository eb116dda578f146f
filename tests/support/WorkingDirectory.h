#pragma once

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace vosklin::test {

// Moves the process into `path` for the lifetime of the object and back
// afterwards, for code that takes relative paths from the working directory.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::string& path) {
        char* current = ::getcwd(nullptr, 0);
        if (!current) throw std::runtime_error("getcwd failed");
        saved_ = current;
        std::free(current);
        if (::chdir(path.c_str()) != 0) throw std::runtime_error("cannot enter " + path);
    }
    ~WorkingDirectory() { (void)::chdir(saved_.c_str()); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    std::string saved_;
};

}  // namespace vosklin::test
