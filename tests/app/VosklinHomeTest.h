#pragma once

// The fixture of the tests that drive the built binary: a home of its own, one
// folder to watch (by its canonical path, as Vosklin reports it), and the
// commands run against that home.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/CommandRunner.h"
#include "support/TempDirectory.h"

namespace vosklin::test {

class VosklinHomeTest : public ::testing::Test {
protected:
    CommandResult vosklin(std::vector<std::string> arguments) { return runInHome(home.path(), arguments); }

    // A command that must succeed, with its JSON output.
    nlohmann::json jsonOf(std::vector<std::string> arguments) { return jsonInHome(home.path(), arguments); }

    // A version of `versions --json`, by the number commands take, and its stored bytes.
    static std::string idOf(const nlohmann::json& version) {
        return std::to_string(version.value("id", std::int64_t(0)));
    }
    std::string contentOf(const nlohmann::json& version) { return vosklin({"cat", idOf(version)}).out; }

    static std::string canonicalPath(const TempDirectory& directory) {
        return std::filesystem::canonical(directory.path()).string();
    }

    TempDirectory home;
    TempDirectory watched;
    const std::string root = canonicalPath(watched);
};

}  // namespace vosklin::test
