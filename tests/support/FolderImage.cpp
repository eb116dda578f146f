#include "support/FolderImage.h"

#include <filesystem>

#include "support/TempDirectory.h"

namespace vosklin::test {

namespace fs = std::filesystem;

FolderImage imageOf(const std::string& root) {
    FolderImage image;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string relative = fs::relative(entry.path(), root).string();
        if (entry.is_symlink()) image[relative + "@"] = fs::read_symlink(entry.path()).string();
        else if (entry.is_directory()) image[relative + "/"] = "";
        else image[relative] = readFile(entry.path());
    }
    return image;
}

std::string differences(const FolderImage& before, const FolderImage& after) {
    std::string text;
    for (const auto& [path, contents] : before) {
        auto found = after.find(path);
        if (found == after.end()) text += "gone: " + path + "\n";
        else if (found->second != contents)
            text += "changed: " + path + " (" + std::to_string(contents.size()) + " -> " +
                    std::to_string(found->second.size()) + " bytes)\n";
    }
    for (const auto& [path, contents] : after)
        if (!before.count(path)) text += "added: " + path + "\n";
    return text;
}

}  // namespace vosklin::test
