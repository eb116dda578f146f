#pragma once

// A watched folder (`root`, listed in the home's folders.json) whose history is
// made by real captures at chosen instants, for the commands that read it back.
// Not a gtest fixture itself, so that both plain and parameterised tests can
// derive from it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bridge/FolderList.h"
#include "support/CaptureStack.h"
#include "support/CommandRunner.h"
#include "support/TempDirectory.h"

namespace vosklin::test {

constexpr double t0 = 1'740'830'400;  // 2025-03-01T12:00:00Z

class RecordedFolder {
protected:
    explicit RecordedFolder(const std::string& folderID) {
        std::filesystem::create_directories(root);
        struct stat st {};
        ::stat(root.c_str(), &st);
        folder = {folderID, root, CaptureMode::automatic, false, {}, st.st_dev, st.st_ino};
        FolderList(home / "folders.json", stack.fileSystem).append(folder);
    }

    // Writes `contents` to `relative` (a package is written by the caller) and captures it at `at`.
    StoredVersion capture(const std::string& relative, const std::string& contents, double at,
                          bool isPackage = false) {
        if (!isPackage) writeFile(root + "/" + relative, contents);
        auto outcome = stack.service.capture(
            {folder.id, root, root + "/" + relative, isPackage, CaptureSource::watcher, std::nullopt}, at);
        EXPECT_EQ(outcome.kind, CaptureOutcome::Kind::stored) << relative;
        return outcome.version;
    }

    CommandResult vosklin(std::vector<std::string> arguments) { return runInHome(home.path(), arguments); }
    nlohmann::json jsonOf(std::vector<std::string> arguments) { return jsonInHome(home.path(), arguments); }
    // The printed instant of the newest moment of the folder's history.
    std::string newestMoment() { return jsonOf({"history", root})["sessions"][0]["moments"][0]["at"]; }

    TempDirectory home;
    TempDirectory place;
    const std::string root = place / "Docs";
    CaptureStack stack{home / "store"};
    WatchedFolder folder;
};

}  // namespace vosklin::test
