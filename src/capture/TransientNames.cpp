#include "capture/TransientNames.h"

#include <fnmatch.h>

namespace vosklin {

const std::vector<std::string>& TransientNames::patterns() {
    static const std::vector<std::string> patterns = {
        ".sb-*",           "*.sb-*",          "~$*",         "Word Work File*", ".~lock.*#",
        "Photoshop Temp*", "pstemp*",         "*.psd~",      "*.aiTemp",        ".*.swp",
        ".*.swo",          "*~",              "#*#",         ".#*",             "___jb_tmp___*",
        "*.crswap",        "*.tmp",           "*.download",  "*.part",          "*.partial",
        "*.crdownload",    "*.!qB",           ".DS_Store",   "._*",             ".Spotlight-V100",
        ".fseventsd",      ".TemporaryItems", ".Trashes",    ".DocumentRevisions-V100", ".nfs*",
    };
    return patterns;
}

bool TransientNames::isTransient(const std::string& name) {
    for (const auto& pattern : patterns())
        if (::fnmatch(pattern.c_str(), name.c_str(), 0) == 0) return true;
    return false;
}

}  // namespace vosklin
