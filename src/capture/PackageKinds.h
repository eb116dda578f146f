#pragma once

#include <string>
#include <vector>

namespace vosklin {

// Which directories are documents in their own right (packages), captured as
// one unit: a directory whose extension, compared case-insensitively, is in
// the built-in list of document-bundle extensions or in the user's
// "vosklin.packageExtensions". A directory ending in ".app" is an application:
// never a unit. A value type.
class PackageKinds {
public:
    explicit PackageKinds(const std::vector<std::string>& userExtensions = {});

    static const std::vector<std::string>& builtInExtensions();
    // The built-in list and the user's "vosklin.packageExtensions", read now.
    static PackageKinds fromSettings(class Settings& settings);
    bool isPackageName(const std::string& name) const;
    static bool isApplicationName(const std::string& name);

private:
    std::vector<std::string> extensions_;  // lower case
};

}  // namespace vosklin
