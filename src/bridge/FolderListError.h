#pragma once

#include <stdexcept>
#include <string>

namespace vosklin {

// Why a folder cannot be added, found or changed. The message is written for the user.
class FolderListError : public std::runtime_error {
public:
    enum class Kind {
        notAFolder,        // nothing there, or not a directory
        unreadable,        // a directory the user cannot list
        reservedRoot,      // a system or home location that must not be watched as a whole
        overlapsStore,     // inside Vosklin's own data, or containing it
        overlapsWatched,   // inside or around a folder already watched
        unsupportedVolume, // on another file system than the store
        unknownFolder,     // no watched folder has this id or path
        malformedList,     // folders.json cannot be read
    };

    FolderListError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

}  // namespace vosklin
