#pragma once

// The fixture of the tests that run the live daemon (`vosklin run` as its own
// process, tests/support/DaemonProcess): a home of its own with a short merge
// window, one watched folder, and the commands these tests read history with.
// `settle` is the only way they wait for a capture.
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "app/VosklinHomeTest.h"
#include "catalog/VersionCatalog.h"
#include "platform/PosixFileSystem.h"
#include "store/VersionStoreLayout.h"

namespace vosklin::test {

class LiveDaemonTest : public VosklinHomeTest {
protected:
    void SetUp() override {
        // A short merge window: a change settles in a tick or two instead of ten seconds.
        writeFile(home / "settings.json", R"({"vosklin.mergeWindowSeconds": 0.2})");
    }

    void succeeds(const std::vector<std::string>& arguments) {
        auto result = vosklin(arguments);
        EXPECT_EQ(result.exitStatus, 0) << arguments[0] << ": " << result.err;
    }

    // The barrier: everything changed before this call has been captured when it returns.
    void settle() {
        auto result = vosklin({"settle", "--timeout", "30"});
        ASSERT_EQ(result.exitStatus, 0) << "settle: " << result.err;
    }

    // `versions --json` of a path: {"file": ..., "versions": [...]}.
    nlohmann::json historyOf(const std::string& path) {
        auto result = vosklin({"versions", path, "--json"});
        EXPECT_EQ(result.exitStatus, 0) << path << ": " << result.err;
        auto parsed = nlohmann::json::parse(result.out, nullptr, false);
        return parsed.is_object() ? parsed
                                  : nlohmann::json{{"file", nlohmann::json::object()}, {"versions", nlohmann::json::array()}};
    }
    nlohmann::json versionsOf(const std::string& path) { return historyOf(path)["versions"]; }

    // `path` has exactly one version, kept by `source` ("baseline", "watcher", ...); it is returned.
    nlohmann::json onlyVersionOf(const std::string& path, const std::string& source) {
        auto versions = versionsOf(path);
        EXPECT_EQ(versions.size(), 1u) << path << ": " << versions.dump();
        if (versions.empty()) return nlohmann::json::object();
        EXPECT_EQ(versions[0]["source"], source) << path;
        return versions[0];
    }

    // Vosklin has never kept anything of `path`.
    void expectNoHistory(const std::string& path) {
        auto result = vosklin({"versions", path, "--json"});
        EXPECT_EQ(result.exitStatus, 1) << path << " has history: " << result.out;
        EXPECT_NE(result.err.find("no history"), std::string::npos) << path << ": " << result.err;
    }

    void expectDeleted(const std::string& path) {
        auto history = historyOf(path);
        EXPECT_FALSE(history["file"].value("deletedAt", nlohmann::json()).is_null()) << path << ": " << history.dump();
        EXPECT_FALSE(history["versions"].empty()) << path << " keeps its history";
    }

    std::int64_t totalVersions() { return jsonOf({"status"}).value("versions", std::int64_t(-1)); }

    // Every row the catalog holds for the watched folders, by relative path, "(deleted)" after a tombstoned one.
    std::set<std::string> rowPaths() {
        PosixFileSystem fileSystem;
        VersionCatalog catalog(VersionStoreLayout(home / "store", fileSystem).databasePath());
        std::set<std::string> paths;
        for (const auto& folder : jsonOf({"folder", "list"}))
            for (const auto& file : catalog.files(folder["id"].get<std::string>(), false))
                paths.insert(file.relativePath + (file.deletedAt ? " (deleted)" : ""));
        return paths;
    }
};

}  // namespace vosklin::test
