// The window's comparisons and rewind plan, over a history made by real captures:
// the same answers as `vosklin diff --json` and `vosklin rewind --dry-run --json`,
// and a binary comparison that finds the first differing byte wherever it is.
#include <gtest/gtest.h>

#include <filesystem>

#include "app/ApiHandlers.h"
#include "app/RecordedFolder.h"
#include "platform/Instant.h"
#include "store/Sha256.h"
#include "support/RecordingLogger.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::t0;

std::string hexOf(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned char c : bytes) text += {digits[c >> 4], digits[c & 15]};
    return text;
}

// 200 KiB that are not one byte repeated, so an offset cannot match by luck.
std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = char((i * 131 + i / 251) & 0xff);
    return bytes;
}

class CompareRequestsTest : public ::testing::Test, protected test::RecordedFolder {
protected:
    CompareRequestsTest() : RecordedFolder("C0000000-0000-4000-8000-000000000001") {}

    StoredVersion version(const std::string& relative, const std::string& contents) {
        return capture(relative, contents, t0 + 60 * double(++captures_));
    }
    ApiResponse ask(const std::string& name, const json& body) { return handlers.answer(name, body.dump()); }
    json call(const std::string& name, const json& body) {
        auto answer = ask(name, body);
        EXPECT_EQ(answer.status, 200) << name << " " << body.dump() << ": " << answer.body.dump();
        return answer.body;
    }

    test::RecordingLogger logger;
    AppContext context{home.path(), logger};
    ApiHandlers handlers{context, nullptr};
    int captures_ = 0;
};

TEST_F(CompareRequestsTest, BinaryComparisonFindsTheFirstDifferenceAndShowsTheBytesAroundIt) {
    const std::string big = pattern(200 * 1024);
    std::string changedPast64K = big;
    changedPast64K[70'000] ^= 0x5a;
    const struct {
        const char* name;
        std::string older, newer;
        std::optional<std::int64_t> firstDifference;
        std::int64_t windowOffset;
    } rows[] = {
        {"equal", big, big, std::nullopt, 0},
        {"differ at 0", "abc", "xbc", 0, 0},
        {"differ mid-chunk past 64 KiB", big, changedPast64K, 70'000, (70'000 - 128) & ~15},
        {"old a prefix of new", "abc", "abcdef", 3, 0},
        {"new a prefix of old, at a chunk's end", big.substr(0, 128 * 1024), big.substr(0, 64 * 1024), 64 * 1024,
         64 * 1024 - 128},
        {"empty against something", "", "x", 0, 0},
    };
    int n = 0;
    for (const auto& row : rows) {
        const std::string name = "file" + std::to_string(++n) + ".bin";
        const auto older = version(name, row.older);
        const auto newer = version("other-" + name, row.newer);  // another file: no dedup between the two
        const auto answer = call("bincompare", {{"old", older.id}, {"new", std::to_string(newer.id)}});
        const json recorded = {{"logicalBytes", row.older.size()}, {"digest", older.digest}, {"versionID", older.id}};
        EXPECT_EQ(answer["old"], recorded) << row.name;
        EXPECT_EQ(answer["new"]["digest"], Sha256::of(row.newer)) << row.name;
        if (!row.firstDifference) {
            EXPECT_TRUE(answer["firstDifference"].is_null()) << row.name;
            EXPECT_TRUE(answer["window"].is_null()) << row.name;
            continue;
        }
        EXPECT_EQ(answer["firstDifference"], *row.firstDifference) << row.name;
        EXPECT_EQ(answer["window"]["offset"], row.windowOffset) << row.name;
        for (auto [key, bytes] : {std::pair{"old", &row.older}, {"new", &row.newer}})
            EXPECT_EQ(answer["window"][key],
                      hexOf(bytes->substr(std::min<std::size_t>(row.windowOffset, bytes->size()), 256)))
                << row.name << " " << key;
    }
}

TEST_F(CompareRequestsTest, TheLiveSideIsTheFileInItsFolderNeverThroughALink) {
    fs::create_directories(root + "/sub");
    const auto notes = version("notes.txt", "first words\n");
    const auto deep = version("sub/deep.txt", "deep words\n");
    test::writeFile(root + "/notes.txt", "first words\nand more\n");
    const auto live = call("bincompare", {{"old", notes.id}, {"new", "live"}});
    EXPECT_EQ(live["new"], json({{"logicalBytes", 21}, {"digest", Sha256::of("first words\nand more\n")}}));
    EXPECT_EQ(live["firstDifference"], 12);
    EXPECT_EQ(call("bincompare", {{"old", deep.id}, {"new", "live"}})["firstDifference"], nullptr);
    EXPECT_EQ(call("diff", {{"old", notes.id}, {"new", "live"}}),
              jsonOf({"diff", std::to_string(notes.id), root + "/notes.txt", "--json"}));

    // The same bytes, reached through a link: the file or a folder on the way.
    fs::rename(root + "/notes.txt", place / "notes-elsewhere.txt");
    fs::create_symlink(place / "notes-elsewhere.txt", root + "/notes.txt");
    fs::rename(root + "/sub", place / "sub-elsewhere");
    fs::create_directory_symlink(place / "sub-elsewhere", root + "/sub");
    for (const auto& [request, id] : {std::pair{"bincompare", notes.id}, {"bincompare", deep.id}, {"diff", notes.id}})
        EXPECT_EQ(ask(request, {{"old", id}, {"new", "live"}}).status, 404) << request << " " << id;
    for (const json& body : {json{{"old", 987654}, {"new", notes.id}}, json{{"old", notes.id}, {"new", 987654}}})
        EXPECT_EQ(ask("bincompare", body).status, 404) << body.dump();
    EXPECT_EQ(ask("bincompare", {{"old", notes.id}, {"new", "latest"}}).status, 400);
}

TEST_F(CompareRequestsTest, TextComparisonIsTheCommandsDiff) {
    const auto v1 = version("story.txt", "one\ntwo\nthree\n");
    const auto v2 = version("story.txt", "one\n2\nthree\nfour\n");
    const auto image = version("image.bin", std::string("\x89PNG\0\0\x01\x02", 8));
    for (const auto& [older, newer] : {std::pair{v1.id, v2.id}, {v2.id, v1.id}, {v1.id, image.id}}) {
        const auto answer = call("diff", {{"old", older}, {"new", newer}});
        EXPECT_EQ(answer, jsonOf({"diff", std::to_string(older), std::to_string(newer), "--json"}));
        EXPECT_EQ(answer["kind"], newer == image.id ? "notText" : "lines");
    }
    EXPECT_EQ(ask("diff", {{"old", 987654}, {"new", v1.id}}).status, 404);
}

TEST_F(CompareRequestsTest, ARewindPlanIsTheCommandsAndItsFingerprintGuardsTheRewind) {
    version("a.txt", "one");
    version("keep.txt", "kept");
    const std::string moment = newestMoment();
    version("a.txt", "two");
    test::writeFile(root + "/b.txt", "made later");

    const json request = {{"folder", root}, {"target", moment}};
    const auto plan = call("rewindplan", request);
    EXPECT_EQ(plan, jsonOf({"rewind", root, moment, "--dry-run", "--json"}));
    EXPECT_EQ(plan["counts"], json({{"revert", 1}, {"restore", 0}, {"remove", 1}}));
    ASSERT_EQ(plan["steps"].size(), 2u);
    EXPECT_EQ(plan["steps"][0]["relativePath"], "a.txt");
    EXPECT_EQ(plan["steps"][1]["action"], "removeAdded");

    // The folder changes after the plan was shown: nothing is written.
    test::writeFile(root + "/c.txt", "made after the plan");
    json rewind = request;
    rewind["planFingerprint"] = plan["planFingerprint"];
    EXPECT_EQ(ask("rewind", rewind).status, 409);
    EXPECT_EQ(test::readFile(root + "/a.txt"), "two");
    EXPECT_TRUE(fs::exists(root + "/b.txt"));

    rewind["planFingerprint"] = call("rewindplan", request)["planFingerprint"];
    EXPECT_NE(rewind["planFingerprint"], plan["planFingerprint"]);
    EXPECT_EQ(call("rewind", rewind)["removedCount"], 2);
    EXPECT_EQ(test::readFile(root + "/a.txt"), "one");
    EXPECT_FALSE(fs::exists(root + "/b.txt"));
    EXPECT_EQ(ask("rewindplan", request).status, 409) << "nothing is left to do";
    EXPECT_EQ(ask("rewindplan", {{"folder", root}, {"target", "2025-02-30"}}).status, 400);
}

}  // namespace
}  // namespace vosklin
