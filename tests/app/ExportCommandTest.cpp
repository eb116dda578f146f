#include <gtest/gtest.h>

#include <filesystem>

#include "app/ApiHandlers.h"
#include "app/RecordedFolder.h"
#include "support/RecordingLogger.h"
#include "platform/Instant.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using test::t0;

class ExportCommandTest : public ::testing::Test, protected test::RecordedFolder {
protected:
    ExportCommandTest() : RecordedFolder("E0000000-0000-4000-8000-000000000001") {
        fs::create_directories(root + "/notes");
        capture("plan.txt", "first plan", t0);
        capture("notes/a.md", "notes of the first day", t0 + 1);
        capture("plan.txt", "second plan", t0 + 7200);
        capture("later.txt", "made later", t0 + 7201);
        fs::remove(root + "/notes/a.md");
        stack.catalog.markDeleted(stack.catalog.fileAtPath(folder.id, "notes/a.md")->id, t0 + 7202);
    }
    std::string out(const std::string& name) { return place / name; }
};

TEST_F(ExportCommandTest, WritesTheFolderAsItWasAtEachMomentIntoANewFolder) {
    const struct {
        double at;
        std::map<std::string, std::string> files;
    } cases[] = {
        {t0 + 60, {{"plan.txt", "first plan"}, {"notes/a.md", "notes of the first day"}}},
        {t0 + 7201, {{"plan.txt", "second plan"}, {"notes/a.md", "notes of the first day"}, {"later.txt", "made later"}}},
        {t0 + 9000, {{"plan.txt", "second plan"}, {"later.txt", "made later"}}},
    };
    int n = 0;
    for (const auto& c : cases) {
        const std::string destination = out("export" + std::to_string(++n));
        auto result = vosklin({"export", root, formatInstant(c.at), destination, "--json"});
        ASSERT_EQ(result.exitStatus, 0) << result.err;
        const auto report = nlohmann::json::parse(result.out);
        EXPECT_EQ(report["fileCount"], c.files.size());
        std::map<std::string, std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(destination))
            if (entry.is_regular_file())
                found[fs::relative(entry.path(), destination).string()] = test::readFile(entry.path().string());
        EXPECT_EQ(found, c.files) << formatInstant(c.at);
    }
    EXPECT_EQ(test::readFile(root + "/plan.txt"), "second plan") << "the folder itself is only read";
}

TEST_F(ExportCommandTest, RefusesAnythingThatWouldWriteOverOrIntoTheWrongPlaceAndLeavesNothingOnFailure) {
    fs::create_directories(out("taken"));
    test::writeFile(out("taken/keep.txt"), "mine");
    fs::create_directories(out("empty"));
    const std::string moment = formatInstant(t0 + 60);
    const struct {
        std::string destination, says;
    } refusals[] = {
        {out("taken"), "already exists"},
        {out("empty"), "already exists"},
        {out("no/such/parent/dest"), "does not exist"},
        {home / "store/export", "store"},
        {root + "/inside", "into itself"},
    };
    for (const auto& r : refusals) {
        auto result = vosklin({"export", root, moment, r.destination});
        EXPECT_EQ(result.exitStatus, 1) << r.destination;
        EXPECT_NE(result.err.find(r.says), std::string::npos) << result.err;
    }
    EXPECT_EQ(test::readFile(out("taken/keep.txt")), "mine");
    EXPECT_TRUE(fs::is_empty(out("empty")));
    EXPECT_FALSE(fs::exists(home / "store/export"));
    EXPECT_FALSE(fs::exists(root + "/inside"));
    EXPECT_EQ(vosklin({"export", root, "2025-02-30", out("bad")}).exitStatus, 1);

    // A stored copy gone missing stops the export half-way: what it wrote goes with it.
    const auto notes = stack.catalog.versionsOfFile(stack.catalog.fileAtPath(folder.id, "notes/a.md")->id, 10).at(0);
    fs::remove(stack.layout.payloadPath(notes.slot, notes.payloadName));
    auto failed = vosklin({"export", root, moment, out("partial")});
    EXPECT_EQ(failed.exitStatus, 1);
    EXPECT_NE(failed.err.find("notes/a.md"), std::string::npos) << failed.err;
    EXPECT_FALSE(fs::exists(out("partial")));
}

TEST_F(ExportCommandTest, TheWindowsExportAndSearchRequestsGoThroughTheSameHandlers) {
    test::RecordingLogger logger;
    AppContext context(home.path(), logger);
    ApiHandlers handlers(context, nullptr);
    const auto exported = handlers.call(
        "export", {{"folder", root}, {"moment", formatInstant(t0 + 60)}, {"destination", out("from-window")}});
    EXPECT_EQ(exported["fileCount"], 2);
    EXPECT_EQ(test::readFile(out("from-window/plan.txt")), "first plan");
    const struct {
        nlohmann::json request;
        int status;
    } refusals[] = {
        {{{"folder", root}, {"moment", formatInstant(t0 + 60)}, {"destination", out("from-window")}}, 409},
        {{{"folder", root}, {"moment", formatInstant(t0 + 60)}, {"destination", "relative/dir"}}, 400},
        {{{"folder", root}, {"moment", "2025-02-30"}, {"destination", out("x")}}, 400},
    };
    for (const auto& r : refusals) {
        const auto answer = handlers.answer("export", r.request.dump());
        EXPECT_EQ(answer.status, r.status) << r.request.dump() << " " << answer.body.dump();
    }

    handlers.call("index", {{"action", "now"}});
    const auto found = handlers.call("search", {{"folder", root}, {"text", "plan"}});
    ASSERT_EQ(found["groups"].size(), 1u) << found.dump();
    EXPECT_EQ(found["groups"][0]["file"]["path"], root + "/plan.txt");
    EXPECT_EQ(found["groups"][0]["hits"].size(), 2u);
    EXPECT_EQ(handlers.call("search", {{"folder", root}, {"text", "later"}, {"scope", "names"}})["groups"].size(), 1u);
    EXPECT_EQ(handlers.call("search", {{"folder", root}, {"text", "p"}})["messageKey"],
              "history.search.contents.minLength");
    EXPECT_EQ(handlers.answer("search", R"({"folder": "@", "text": "plan"})").status, 404);
}

}  // namespace
}  // namespace vosklin
