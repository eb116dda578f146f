#include "support/SpecialFiles.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vosklin::test {

std::vector<SpecialFile> allSpecialFiles() {
    return {SpecialFile::namedPipe, SpecialFile::socket, SpecialFile::characterDevice};
}

const char* nameOf(SpecialFile kind) {
    switch (kind) {
        case SpecialFile::namedPipe: return "named pipe";
        case SpecialFile::socket: return "socket";
        case SpecialFile::characterDevice: return "character device";
    }
    return "";
}

bool makeSpecialFile(SpecialFile kind, const std::string& path, std::string& whyNot) {
    int result = 0;
    switch (kind) {
        case SpecialFile::namedPipe: result = ::mkfifo(path.c_str(), 0644); break;
        case SpecialFile::characterDevice:
            // The same device as /dev/null: harmless should anything ever read it.
            result = ::mknod(path.c_str(), S_IFCHR | 0644, makedev(1, 3));
            break;
        case SpecialFile::socket: {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            if (path.size() >= sizeof address.sun_path) {
                whyNot = "the path is too long for a socket address";
                return false;
            }
            std::strcpy(address.sun_path, path.c_str());
            int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
            if (fd < 0) {
                result = -1;
                break;
            }
            // The name stays in the folder after the socket is closed, as a crashed server leaves it.
            result = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
            const int saved = errno;
            ::close(fd);
            errno = saved;
            break;
        }
    }
    if (result == 0) return true;
    whyNot = std::string("cannot make a ") + nameOf(kind) + ": " + std::strerror(errno);
    return false;
}

}  // namespace vosklin::test
