// The window's folder, settings and completion requests: the same rules and the
// same words as the commands, checked against the built binary on one home.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "app/ApiHandlers.h"
#include "app/VosklinHomeTest.h"
#include "platform/StringTable.h"
#include "support/RecordingLogger.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class FolderRequestsTest : public test::VosklinHomeTest {
protected:
    ApiResponse ask(const std::string& name, const json& body = json::object()) {
        return handlers.answer(name, body.dump());
    }
    json call(const std::string& name, const json& body = json::object()) {
        auto answer = ask(name, body);
        EXPECT_EQ(answer.status, 200) << name << " " << body.dump() << ": " << answer.body.dump();
        return answer.body;
    }
    // What a refused command said, without the "vosklin: " it prints before it.
    static std::string refusal(const test::CommandResult& result) {
        EXPECT_EQ(result.exitStatus, 1) << result.out;
        const std::string prefix = "vosklin: ";
        if (result.err.rfind(prefix, 0) != 0 || result.err.back() != '\n') return "unexpected: " + result.err;
        return result.err.substr(prefix.size(), result.err.size() - prefix.size() - 1);
    }
    std::string settingsFile() {
        const std::string path = home / "settings.json";
        return fs::exists(path) ? test::readFile(path) : "(none)";
    }

    test::RecordingLogger logger;
    AppContext context{home.path(), logger};
    ApiHandlers handlers{context, nullptr};
    test::TempDirectory place;
};

TEST_F(FolderRequestsTest, AddingAFolderIsRefusedWithTheCommandsWords) {
    fs::create_directories(root + "/inside");
    test::writeFile(place / "plain.txt", "not a folder");
    ASSERT_EQ(call("folderadd", {{"path", root}})["path"], root);
    const std::string refused[] = {root, root + "/inside", fs::path(root).parent_path().string(), place / "plain.txt",
                                   place / "missing", "/", home.path(), home / "store"};
    for (const auto& path : refused) {
        const auto answer = ask("folderadd", {{"path", path}, {"manual", true}});
        EXPECT_EQ(answer.status, 409) << path;
        EXPECT_EQ(answer.body.value("error", ""), refusal(vosklin({"folder", "add", path}))) << path;
    }
    for (const std::string path : {"", "relative/folder"})
        EXPECT_EQ(ask("folderadd", {{"path", path}}).status, 400) << path;
    EXPECT_EQ(jsonOf({"folder", "list"}).size(), 1u);
}

TEST_F(FolderRequestsTest, PauseResumeModeAndBudgetGoThroughFoldersJson) {
    const std::string id = call("folderadd", {{"path", root}})["id"];
    const struct {
        const char* request;
        json body;
        const char* field;  // in `folder list --json`
        json expected;
        const char* state;  // in the window's list
    } rows[] = {
        {"folderpause", json::object(), "isPaused", true, "paused"},
        {"folderresume", json::object(), "isPaused", false, "recording"},
        {"foldermode", {{"mode", "manual"}}, "mode", "manual", "manual"},
        {"foldermode", {{"mode", "automatic"}}, "mode", "automatic", "recording"},
        {"folderbudget", {{"budget", "20GB"}}, "budgetBytes", 20'000'000'000, "recording"},
        {"folderbudget", {{"budget", 5'000'000}}, "budgetBytes", 5'000'000, "recording"},
        {"folderbudget", {{"budget", "unlimited"}}, "budgetBytes", "unlimited", "recording"},
        {"folderbudget", {{"budget", "automatic"}}, "budgetBytes", nullptr, "recording"},
    };
    for (const auto& row : rows) {
        json body = row.body;
        body["folder"] = row.request == std::string("folderpause") ? root : id;  // by path or by id
        call(row.request, body);
        EXPECT_EQ(jsonOf({"folder", "list"})[0][row.field], row.expected) << row.request << " " << body.dump();
        const auto listed = call("folders")["folders"][0];
        EXPECT_EQ(listed["state"], row.state) << row.request << " " << body.dump();
        if (row.expected.is_number() || row.expected == "unlimited") {
            EXPECT_EQ(listed["budgetBytes"], row.expected.is_number() ? row.expected : json()) << body.dump();
        }
    }

    const struct {
        const char* request;
        json body;
        std::vector<std::string> command;
    } refusals[] = {
        {"foldermode", {{"folder", id}, {"mode", "sometimes"}}, {"folder", "mode", id, "sometimes"}},
        {"folderbudget", {{"folder", id}, {"budget", "20"}}, {"folder", "budget", id, "20"}},
        {"folderbudget", {{"folder", id}, {"budget", "lots"}}, {"folder", "budget", id, "lots"}},
        {"folderpause", {{"folder", place / "unwatched"}}, {"folder", "pause", place / "unwatched"}},
    };
    for (const auto& r : refusals) {
        const auto answer = ask(r.request, r.body);
        EXPECT_EQ(answer.status, r.request == std::string("folderpause") ? 404 : 400) << r.body.dump();
        EXPECT_EQ(answer.body.value("error", ""), refusal(vosklin(r.command))) << r.body.dump();
    }
    EXPECT_EQ(ask("folderbudget", {{"folder", id}, {"budget", true}}).status, 400);
}

TEST_F(FolderRequestsTest, RemovingKeepsTheHistoryForTheFolderToComeBack) {
    watched.write("notes.txt", "kept");
    const std::string id = call("folderadd", {{"path", root}})["id"];
    ASSERT_EQ(vosklin({"scan", root}).exitStatus, 0);
    const auto removed = call("folderremove", {{"folder", root}});
    EXPECT_EQ(removed["historyKept"], true);
    EXPECT_TRUE(call("folders")["folders"].empty());
    const auto back = call("folderadd", {{"path", root}});
    EXPECT_EQ(back["id"], id);
    EXPECT_EQ(back["versions"], 1);
    EXPECT_EQ(call("folders")["folders"][0]["lastChangeAt"],
              jsonOf({"history", root})["sessions"][0]["moments"][0]["at"]);
    // Free space (and the automatic budget made from it) may move between the two readings.
    auto steady = [](json usage) {
        usage.erase("availableBytes");
        for (auto& folder : usage["folders"]) folder.erase("budgetBytes");
        return usage;
    };
    EXPECT_EQ(steady(call("usage")), steady(jsonOf({"usage"})));
}

TEST_F(FolderRequestsTest, CompletesFoldersInNaturalOrderHiddenOnlyWhenAsked) {
    for (const char* name : {"b10", "b2", "B3", "Alpha", ".hidden", ".config", "many"})
        fs::create_directories(place / name);
    for (int i = 60; i >= 1; --i) fs::create_directories(place / ("many/d" + std::to_string(i)));
    test::writeFile(place / "bfile", "a file");
    fs::create_directory_symlink(place / "Alpha", place / "blink");
    const std::string base = place.path();
    const struct {
        std::string prefix;
        std::vector<std::string> expected;  // below `base`
    } rows[] = {
        {base + "/", {"Alpha", "b2", "B3", "b10", "many"}},
        {base + "/b", {"b2", "b10"}},
        {base + "/.", {".config", ".hidden"}},
        {base + "/.h", {".hidden"}},
        {base + "/zzz", {}},
        {base + "/missing/", {}},
        {base + "/bfile/", {}},
    };
    for (const auto& row : rows) {
        json expected = json::array();
        for (const auto& name : row.expected) expected.push_back(base + "/" + name);
        EXPECT_EQ(call("complete", {{"prefix", row.prefix}})["directories"], expected) << row.prefix;
    }
    const auto many = call("complete", {{"prefix", base + "/many/d"}})["directories"];
    ASSERT_EQ(many.size(), 50u);
    EXPECT_EQ(many.front(), base + "/many/d1");
    EXPECT_EQ(many.back(), base + "/many/d50");
    for (const char* prefix : {"", "relative/b", "~/Documents"})
        EXPECT_EQ(ask("complete", {{"prefix", prefix}}).status, 400) << prefix;
}

TEST_F(FolderRequestsTest, ASettingIsValidatedAsTheCommandDoesAndARefusalWritesNothing) {
    EXPECT_EQ(call("settings"), jsonOf({"settings"}));
    call("setting", {{"key", "mergeWindowSeconds"}, {"value", 30}});
    const std::string written = settingsFile();
    const struct {
        json value;
        std::vector<std::string> words;  // as typed on the command line
        const char* key;
    } refusals[] = {
        {"x", {"x"}, "noSuchSetting"},
        {"decade", {"decade"}, "historyHorizon"},
        {0, {"0"}, "mergeWindowSeconds"},
        {"1e3", {"1e3"}, "vosklin.mergeWindowSeconds"},
        {json::array({"a/b"}), {"a/b"}, "excludePatterns"},
        {json::array({""}), {""}, "packageExtensions"},
        {"maybe", {"maybe"}, "contentSearchDisabled"},
    };
    for (const auto& r : refusals) {
        std::vector<std::string> command = {"settings", r.key};
        command.insert(command.end(), r.words.begin(), r.words.end());
        const auto answer = ask("setting", {{"key", r.key}, {"value", r.value}});
        EXPECT_EQ(answer.status, 400) << r.value.dump();
        EXPECT_EQ(answer.body.value("error", ""), refusal(vosklin(command))) << r.value.dump();
        EXPECT_EQ(settingsFile(), written) << r.value.dump();
    }
    for (const json& value : {json::object(), json::array({1, 2})})
        EXPECT_EQ(ask("setting", {{"key", "excludePatterns"}, {"value", value}}).status, 400) << value.dump();
    EXPECT_EQ(settingsFile(), written);

    const auto patterns = call("setting", {{"key", "excludePatterns"}, {"value", json::array({"*.tmp", "*.bak"})}});
    EXPECT_EQ(patterns, jsonOf({"settings", "excludePatterns"}));
    EXPECT_EQ(call("setting", {{"key", "contentSearchDisabled"}, {"value", true}})["value"], true);
    const auto reset = call("setting", {{"key", "mergeWindowSeconds"}, {"value", nullptr}});
    EXPECT_EQ(reset["isDefault"], true);
    EXPECT_EQ(call("settings"), jsonOf({"settings"}));
}

TEST_F(FolderRequestsTest, StringsAreTheWholeTableWithSingularForms) {
    const auto strings = call("strings");
    EXPECT_EQ(strings["texts"].size(), StringTable::all().size());
    EXPECT_EQ(strings["texts"]["compare.text.notText"], StringTable::text("compare.text.notText"));
    EXPECT_EQ(strings["singular"]["compare.text.regions %lld"], StringTable::count("compare.text.regions %lld", 1));
    EXPECT_FALSE(strings["singular"].contains("compare.text.notText"));
}

TEST_F(FolderRequestsTest, AutostartIsTheCommandsUnit) {
    const std::string config = place / "config";
    const char* saved = std::getenv("XDG_CONFIG_HOME");
    const std::string previous = saved ? saved : "";
    ::setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    const std::string unit = config + "/systemd/user/vosklin.service";
    EXPECT_EQ(call("autostart"), json({{"enabled", false}}));
    EXPECT_EQ(call("autostart", {{"enabled", true}})["enabled"], true);
    EXPECT_NE(test::readFile(unit).find(" run --background --home " + home.path() + "\n"), std::string::npos);
    EXPECT_EQ(test::runVosklin({"autostart", "off"}, {{"XDG_CONFIG_HOME", config}}).exitStatus, 0);
    EXPECT_EQ(call("autostart"), json({{"enabled", false}}));
    EXPECT_FALSE(fs::exists(unit));
    if (saved) ::setenv("XDG_CONFIG_HOME", previous.c_str(), 1);
    else ::unsetenv("XDG_CONFIG_HOME");
}

}  // namespace
}  // namespace vosklin
