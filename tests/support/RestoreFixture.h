#pragma once

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include <filesystem>
#include <string>
#include <vector>

#include "bridge/FolderList.h"
#include "restore/RestoreService.h"
#include "restore/RewindService.h"
#include "support/CaptureStack.h"
#include "support/TempDirectory.h"

namespace vosklin::test {

constexpr double t0 = 1'740'830'400;  // 2025-03-01T12:00:00Z

// A watched folder with a store, and the restore and rewind services over both.
struct RestoreFixture {
    explicit RestoreFixture(const TempDirectory& directory)
        : root(directory / "Docs"), store(directory / "store"), config(directory / "config") {
        std::filesystem::create_directories(root);
        struct stat st {};
        ::stat(root.c_str(), &st);
        folder = {"B0000000-0000-4000-8000-000000000001", root, CaptureMode::automatic, false, {}, st.st_dev,
                  st.st_ino};
        folders.append(folder);
    }

    StoredVersion capture(const std::string& relative, const std::string& contents, double at) {
        test::writeFile(root + "/" + relative, contents);
        return stack.service
            .capture({folder.id, root, root + "/" + relative, false, CaptureSource::watcher, std::nullopt}, at)
            .version;
    }
    std::vector<std::string> scratchItems() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
            if (entry.path().filename().string().starts_with(".vosklin-restore-")) found.push_back(entry.path());
        return found;
    }
    // The stored contents of `relative`'s versions captured with `source`, newest first.
    std::vector<std::string> keptContents(const std::string& relative, CaptureSource source) {
        std::vector<std::string> found;
        auto file = stack.catalog.fileAtPath(folder.id, relative);
        if (!file) return found;
        for (const auto& version : stack.catalog.versionsOfFile(file->id, 100))
            if (version.source == source)
                found.push_back(test::readFile(stack.layout.payloadPath(version.slot, version.payloadName)));
        return found;
    }
    std::vector<std::string> journalFiles(const std::string& prefix) const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(stack.layout.journalDirectory()))
            if (entry.path().filename().string().starts_with(prefix)) found.push_back(entry.path().filename());
        return found;
    }

    std::string root, store, config;
    test::CaptureStack stack{store};
    FolderList folders{config + "/folders.json", stack.fileSystem};
    WatchedFolder folder;
    RestoreService::Collaborators collaborators{stack.catalog, stack.layout, stack.service, folders,
                                                stack.fileSystem, stack.cloner, stack.clock, stack.logger};
    RestoreService service{collaborators};
    RewindService rewinds{collaborators, ExcludeRules::standard({}), PackageKinds()};
};

// Runs `operation` on a fresh fixture in a child process that is killed
// (SIGKILL) just before its `killAt`-th write. Returns true when the operation
// finished before reaching that write, false when it was killed; a failure of
// its own (an exception) fails the test.
inline bool runKilledAtWrite(const TempDirectory& directory, int killAt,
                             const std::function<void(RestoreFixture&)>& operation) {
    pid_t child = ::fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) {
        RestoreFixture f(directory);
        int writes = 0;
        f.stack.fileSystem.beforeMutation = [&](FaultyFileSystem::Operation, const std::string&) {
            if (++writes == killAt) ::raise(SIGKILL);
        };
        try {
            operation(f);
        } catch (...) {
            ::_exit(2);
        }
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status)) {
        EXPECT_EQ(WEXITSTATUS(status), 0) << "failed without being killed, at write " << killAt;
        return true;
    }
    EXPECT_TRUE(WIFSIGNALED(status));
    return false;
}

}  // namespace vosklin::test
