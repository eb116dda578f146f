// The window's history requests through the shared handlers, over a history
// made by real captures at chosen instants: paging, the calendar, files at a
// moment, every path, a file's versions, and comparing two moments.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/ApiHandlers.h"
#include "app/HistoryRequests.h"
#include "app/RecordedFolder.h"
#include "platform/Instant.h"
#include "retention/PinnedTimeZone.h"
#include "support/RecordingLogger.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::t0;

class HistoryRequestsTest : public test::RecordedFolder, public ::testing::Test {
protected:
    HistoryRequestsTest() : RecordedFolder("A0000000-0000-4000-8000-000000000013") {}

    json call(const std::string& name, json body) {
        if (!body.contains("folder") && name != "versions") body["folder"] = folder.id;
        return handlers.call(name, body);
    }
    // Every moment of every page, and the pages' sizes in moments.
    std::pair<json, std::vector<std::size_t>> allPages(std::int64_t limit) {
        json moments = json::array();
        std::vector<std::size_t> sizes;
        json body = {{"limit", limit}};
        for (int guard = 0; guard < 100; ++guard) {
            const auto page = call("history", body);
            sizes.push_back(0);
            for (const auto& session : page["sessions"])
                for (const auto& moment : session["moments"]) moments.push_back(moment), ++sizes.back();
            if (page["next"].is_null()) break;
            body["before"] = page["next"];
        }
        return {moments, sizes};
    }
    // "path" or "path<-previous" of each entry, in order.
    static std::vector<std::string> listed(const json& entries) {
        std::vector<std::string> out;
        for (const auto& entry : entries)
            out.push_back(entry["relativePath"].get<std::string>() +
                          (entry["previousPath"].is_null() ? "" : "<-" + entry["previousPath"].get<std::string>()));
        return out;
    }

    test::RecordingLogger logger;
    AppContext context{home.path(), logger};
    ApiHandlers handlers{context, nullptr};
};

TEST_F(HistoryRequestsTest, PagesHoldWholeMomentsAndConcatenateToTheWholeHistory) {
    capture("a.txt", "a", t0);  // one moment of three rows
    capture("b.txt", "bb", t0 + 10);
    capture("c.txt", "ccc", t0 + 20);
    const auto d = capture("d.txt", "dddd", t0 + 200);
    capture("a.txt", "a, edited", t0 + 400);  // a moment of two rows
    capture("b.txt", "bb, edited", t0 + 430);
    const auto c = stack.catalog.fileAtPath(folder.id, "c.txt");
    capture("e.txt", "e", t0 + 5000);  // a new session
    stack.catalog.recordRename(d.fileID, "renamed.txt", std::string("txt"), t0 + 5100);  // moments of events alone
    stack.catalog.markDeleted(c->id, t0 + 5300);

    const auto whole = jsonOf({"history", root});
    const auto first = call("history", json::object());
    EXPECT_EQ(first["sessions"].dump(), whole["sessions"].dump()) << "a history under the limit: the command's own";
    EXPECT_TRUE(first["next"].is_null());
    json wholeMoments = json::array();
    for (const auto& session : whole["sessions"])
        for (const auto& moment : session["moments"]) wholeMoments.push_back(moment);
    ASSERT_EQ(wholeMoments.size(), 6u);

    // The moments per page, newest first: a page's oldest moment waits for the next page unless the
    // history ends there, and a moment larger than the limit comes whole.
    const std::vector<std::pair<std::int64_t, std::vector<std::size_t>>> table = {
        {1, {2, 1, 2, 1}},  // e's row, with the rename and deletion after it; then reading on to whole moments
        {2, {3, 2, 1}},
        {3, {3, 1, 1, 1}},
        {4, {4, 1, 1}},
        {7, {5, 1}},  // every row, but a full page: the oldest moment could go on
        {8, {6}},
        {1000, {6}},
    };
    for (const auto& [limit, sizes] : table) {
        SCOPED_TRACE("limit " + std::to_string(limit));
        const auto [moments, pageSizes] = allPages(limit);
        EXPECT_EQ(moments, wholeMoments);
        EXPECT_EQ(pageSizes, sizes);
    }
}

TEST_F(HistoryRequestsTest, AMomentOfManyFilesListsItsFirstChangesAndCountsThemAll) {
    const std::size_t files = HistoryRequests::changesPerMoment + 5;
    for (std::size_t i = 0; i < files; ++i) capture("f" + std::to_string(i) + ".txt", "x", t0 + double(i) / 100);
    capture("late.txt", "y", t0 + 5000);
    const auto page = call("history", json::object());
    ASSERT_EQ(page["sessions"].size(), 2u);
    const auto& big = page["sessions"][1]["moments"][0];
    EXPECT_EQ(big["changes"].size(), HistoryRequests::changesPerMoment);
    EXPECT_EQ(big["changeCount"], files);
    EXPECT_FALSE(page["sessions"][0]["moments"][0].contains("changeCount")) << "a moment listed whole says nothing more";
    const auto whole = jsonOf({"history", root});
    EXPECT_EQ(whole["sessions"][1]["moments"][0]["changes"].size(), files) << "the command still lists every change";
}

TEST_F(HistoryRequestsTest, CalendarDaysAreLocalDaysNewestFirst) {
    test::PinnedTimeZone zone(test::centralEurope);
    const double lateEvening = test::utc("2025-03-01 22:30");  // 23:30 on March 1 in Central Europe
    capture("a.txt", "a", lateEvening);
    capture("b.txt", "b", lateEvening + 30);
    const auto c = capture("c.txt", "c", test::utc("2025-03-01 23:30"));  // 00:30 on March 2 there
    stack.catalog.markDeleted(c.fileID, test::utc("2025-03-04 08:00"));
    const auto days = call("calendar", json::object())["days"];
    const json expected = {
        {{"date", "2025-03-04"}, {"changes", 1}, {"first", "2025-03-04T08:00:00Z"}, {"last", "2025-03-04T08:00:00Z"}},
        {{"date", "2025-03-02"}, {"changes", 1}, {"first", "2025-03-01T23:30:00Z"}, {"last", "2025-03-01T23:30:00Z"}},
        {{"date", "2025-03-01"}, {"changes", 2}, {"first", "2025-03-01T22:30:00Z"}, {"last", "2025-03-01T22:30:30Z"}},
    };
    EXPECT_EQ(days, expected);
}

TEST_F(HistoryRequestsTest, FilesAtAMomentAreShowsListWithDeletedNowMarked) {
    capture("a.txt", "a", t0);
    const auto b = capture("b.txt", "bb", t0 + 1);
    stack.catalog.markDeleted(b.fileID, t0 + 100);
    for (const double at : {t0 + 1, t0 + 200}) {
        SCOPED_TRACE(formatInstant(at));
        const auto files = call("files", {{"at", formatInstant(at)}});
        auto shown = jsonOf({"show", root, "--at", formatInstant(at)});
        json withoutMarks = files;
        for (auto& file : withoutMarks["files"]) file.erase("isDeleted");
        EXPECT_EQ(withoutMarks.dump(), shown.dump());
        std::vector<std::pair<std::string, bool>> marks;
        for (const auto& file : files["files"]) marks.emplace_back(file["relativePath"], file["isDeleted"]);
        EXPECT_EQ(marks, (at < t0 + 100 ? decltype(marks){{"a.txt", false}, {"b.txt", true}}
                                        : decltype(marks){{"a.txt", false}}));
    }
}

TEST_F(HistoryRequestsTest, PathsAndVersionsFindFilesByOldNamesAndAfterDeletion) {
    const auto draft = capture("draft.txt", "one", t0);
    capture("draft.txt", "one two", t0 + 100);
    fs::rename(root + "/draft.txt", root + "/final.txt");
    stack.catalog.recordRename(draft.fileID, "final.txt", std::string("txt"), t0 + 200);
    capture("final.txt", "one two three", t0 + 300);
    const auto gone = capture("gone.txt", "bye", t0 + 400);
    fs::remove(root + "/gone.txt");
    stack.catalog.markDeleted(gone.fileID, t0 + 500);

    const auto paths = call("paths", json::object())["paths"];
    const json expected = {
        {{"relativePath", "draft.txt"}, {"fileID", draft.fileID}, {"isDeleted", false}, {"versionCount", 3}},
        {{"relativePath", "final.txt"}, {"fileID", draft.fileID}, {"isDeleted", false}, {"versionCount", 3}},
        {{"relativePath", "gone.txt"}, {"fileID", gone.fileID}, {"isDeleted", true}, {"versionCount", 1}},
    };
    EXPECT_EQ(paths, expected);

    struct Case {
        json body;
        std::string path;
        std::vector<std::int64_t> bytes;  // of the versions listed, newest first
        std::int64_t total;
        json live;
    };
    const json liveFinal = {{"exists", true}, {"logicalBytes", 13}};
    const json nothing = {{"exists", false}, {"logicalBytes", nullptr}};
    const std::vector<Case> cases = {
        {{{"path", root + "/gone.txt"}}, "gone.txt", {3}, 1, nothing},
        {{{"path", root + "/draft.txt"}}, "final.txt", {13, 7, 3}, 3, liveFinal},
        {{{"file", draft.fileID}, {"offset", 1}, {"limit", 1}}, "final.txt", {7}, 3, liveFinal},
    };
    for (const auto& [body, path, bytes, total, live] : cases) {
        SCOPED_TRACE(body.dump());
        const auto answer = call("versions", body);
        EXPECT_EQ(answer["path"], root + "/" + path);
        EXPECT_EQ(answer["folderID"], folder.id);
        std::vector<std::int64_t> listedBytes;
        for (const auto& version : answer["versions"]) listedBytes.push_back(version["logicalBytes"]);
        EXPECT_EQ(listedBytes, bytes);
        EXPECT_EQ(answer["total"], total);
        EXPECT_EQ(answer["live"], live);
    }
}

TEST_F(HistoryRequestsTest, ComparingMomentsListsWhatWasAddedChangedDeletedAndRenamed) {
    capture("keep.txt", "same", t0);
    capture("edit.txt", "before", t0);
    const auto gone = capture("gone.txt", "gone", t0);
    const auto old = capture("old.txt", "moves", t0);
    capture("edit.txt", "after, longer", t0 + 1000);
    capture("new.txt", "new", t0 + 1000);
    stack.catalog.markDeleted(gone.fileID, t0 + 1000);
    stack.catalog.recordRename(old.fileID, "moved.txt", std::string("txt"), t0 + 1000);

    struct Case {
        double from, to;
        std::vector<std::string> added, changed, deleted, renamed;
    };
    const std::vector<Case> cases = {
        {t0, t0 + 1000, {"new.txt"}, {"edit.txt"}, {"gone.txt"}, {"moved.txt<-old.txt"}},
        {t0 + 1000, t0, {"gone.txt"}, {"edit.txt"}, {"new.txt"}, {"old.txt<-moved.txt"}},
        {t0 + 1000, t0 + 1000, {}, {}, {}, {}},
    };
    for (const auto& [from, to, added, changed, deleted, renamed] : cases) {
        const auto answer = call("comparemoments", {{"from", formatInstant(from)}, {"to", formatInstant(to)}});
        SCOPED_TRACE(answer.dump());
        EXPECT_EQ(listed(answer["added"]), added);
        EXPECT_EQ(listed(answer["changed"]), changed);
        EXPECT_EQ(listed(answer["deleted"]), deleted);
        EXPECT_EQ(listed(answer["renamed"]), renamed);
    }
    const auto forward = call("comparemoments", {{"from", formatInstant(t0)}, {"to", formatInstant(t0 + 1000)}});
    const auto& edited = forward["changed"][0];
    EXPECT_EQ(edited["oldBytes"], 6);
    EXPECT_EQ(edited["newBytes"], 13);
    EXPECT_NE(edited["oldVersionID"], edited["newVersionID"]);
    EXPECT_TRUE(forward["added"][0]["oldVersionID"].is_null());
    EXPECT_TRUE(forward["deleted"][0]["newBytes"].is_null());
}

TEST_F(HistoryRequestsTest, RequestsThatCannotBeAnsweredSayWhy) {
    capture("a.txt", "a", t0);
    const std::vector<std::tuple<std::string, json, int>> cases = {
        {"history", {{"folder", "/nowhere/at/all"}}, 404},
        {"history", {{"folder", folder.id}, {"limit", 0}}, 400},
        {"history", {{"folder", folder.id}, {"before", "2025-02-30"}}, 400},
        {"files", {{"folder", folder.id}}, 400},
        {"comparemoments", {{"folder", folder.id}, {"from", formatInstant(t0)}}, 400},
        {"versions", json::object(), 400},
        {"versions", {{"file", 999}}, 404},
        {"versions", {{"path", place / "elsewhere.txt"}}, 404},
    };
    for (const auto& [name, body, status] : cases) {
        const auto response = handlers.answer(name, body.dump());
        EXPECT_EQ(response.status, status) << name << " " << body.dump() << " " << response.body.dump();
        EXPECT_FALSE(response.body.value("error", "").empty());
    }
}

}  // namespace
}  // namespace vosklin
