#pragma once

#include <stdexcept>
#include <string>

namespace vosklin {

class StoreLocatorError : public std::runtime_error {
public:
    enum class Kind {
        unsupportedVolume,     // the watched folder is on another file system than the store
        containerUnavailable,  // no container directory, or a volume identifier could not be read
    };

    static StoreLocatorError unsupportedVolume(const std::string& identifier) {
        return StoreLocatorError(Kind::unsupportedVolume, identifier,
                                 "The folder is on another file system (device " + identifier +
                                     ") than Vosklin's store; versions can only be kept on the same file system");
    }
    static StoreLocatorError containerUnavailable(const std::string& detail) {
        return StoreLocatorError(Kind::containerUnavailable, "", "Vosklin's data folder is unavailable: " + detail);
    }

    Kind kind() const { return kind_; }
    // The watched folder's volume, for unsupportedVolume.
    const std::string& identifier() const { return identifier_; }

private:
    StoreLocatorError(Kind kind, std::string identifier, const std::string& what)
        : std::runtime_error(what), kind_(kind), identifier_(std::move(identifier)) {}

    Kind kind_;
    std::string identifier_;
};

}  // namespace vosklin
