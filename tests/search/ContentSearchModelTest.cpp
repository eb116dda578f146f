#include "search/ContentSearchModel.h"

#include <gtest/gtest.h>

#include "support/ManualClock.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using Scope = ContentSearchModel::Scope;

TEST(ContentSearchModelExpression, QuotesEveryWordAndMakesTheLastAPrefix) {
    const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
        {"résumé letter", R"x("résumé" "letter"*)x"},
        {"\"quoted\"", R"x("quoted"*)x"},
        {"  spaced\tout\nover\u2028lines ", R"x("spaced" "out" "over" "lines"*)x"},
        {"NOT this OR that*", R"x("NOT" "this" "OR" "that*"*)x"},
        {"body:x (a) ^b", R"x("body:x" "(a)" "^b"*)x"},
        {"-- --- a-b", R"x("a-b"*)x"},
        {"ab\"cd", R"x("abcd"*)x"},
        {"日本語 ٣", R"x("日本語" "٣"*)x"},
        {"---", std::nullopt},
        {"\"\" ... ?!", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(ContentSearchModel::matchExpression(text), expected) << text;
}

class ContentSearchModelTest : public ::testing::Test {
protected:
    // Versions of `path` with the given texts, each captured a minute after the last.
    std::vector<std::int64_t> versions(const std::string& path, const std::vector<std::string>& texts) {
        const auto file = catalog.upsertFile(folder, path, std::nullopt, false, std::string("txt"));
        std::vector<std::int64_t> ids;
        for (const auto& text : texts) {
            NewVersion version;
            version.fileID = file.id;
            version.capturedAt = (at += 60);
            version.digest = "d" + std::to_string(at);
            version.logicalBytes = std::int64_t(text.size());
            version.slot = "versions/" + version.digest;
            version.payloadName = path;
            ids.push_back(catalog.recordVersion(version).id);
            catalog.storeContentResult(version.digest, ContentState::indexed, at, version.logicalBytes, text);
        }
        return ids;
    }
    ContentSearchModel::Outcome find(const std::string& text, Scope scope = Scope::contents) {
        return model.search(scope, {text, true, folder});
    }

    test::TempDirectory directory;
    VersionCatalog catalog{directory / "index.sqlite"};
    test::ManualClock clock;
    ContentSearchModel model{catalog, clock};
    const std::string folder = "F0000000-0000-4000-8000-000000000001";
    double at = 1'740'830'400.0;
};

TEST_F(ContentSearchModelTest, GroupsHitsByFileNewestFirstWithMarkedTerms) {
    const auto plan = versions("plan.txt", {"budget draft one", "budget draft two", "budget final"});
    const auto notes = versions("notes.txt", {"the budget meeting"});
    versions("other.txt", {"nothing to see"});
    const auto outcome = find("budget");
    ASSERT_EQ(outcome.groups.size(), 2u);
    EXPECT_EQ(outcome.groups[0].file.relativePath, "notes.txt") << "groups are ordered by their newest hit";
    ASSERT_EQ(outcome.groups[1].hits.size(), 3u);
    EXPECT_EQ(outcome.groups[1].hits[0].versionID, plan[2]);
    EXPECT_EQ(outcome.groups[1].hits[2].versionID, plan[0]);
    EXPECT_EQ(outcome.groups[0].hits[0].snippet, "the \x01" "budget\x02 meeting");
    EXPECT_FALSE(outcome.messageKey);
    EXPECT_EQ(find("budget drafts").messageKey, "history.search.contents.noMatches");
    EXPECT_EQ(find("draft").groups.at(0).hits.size(), 2u);
    EXPECT_EQ(find("budg").groups.size(), 2u) << "the word being typed matches as a prefix";
}

TEST_F(ContentSearchModelTest, ShortEmptyAndMeaninglessTextsRunNoSearch) {
    versions("a.txt", {"a b c --- x"});
    const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
        {"", "history.search.contents.empty"}, {"   \n", "history.search.contents.empty"},
        {"a", "history.search.contents.minLength"}, {" é ", "history.search.contents.minLength"},
        {"---", std::nullopt}, {"\"\"\"", std::nullopt},
    };
    for (const auto& [text, key] : cases) {
        const auto outcome = find(text);
        EXPECT_FALSE(outcome.searched) << text;
        EXPECT_EQ(outcome.messageKey, key) << text;
    }
    EXPECT_FALSE(model.search(Scope::contents, {"abc", false, folder}).searched) << "an inactive field searches nothing";
}

TEST_F(ContentSearchModelTest, KeepsTheNewest300AndSearchesNamesInTheNamesScope) {
    std::vector<std::string> texts(305, "common words");
    const auto ids = versions("log.txt", texts);
    const auto outcome = find("common");
    ASSERT_EQ(outcome.groups.size(), 1u);
    EXPECT_EQ(outcome.groups[0].hits.size(), 300u);
    EXPECT_EQ(outcome.groups[0].hits.back().versionID, ids[5]);
    versions("Reports/Q3 100%.txt", {"x"});
    const auto names = find("100%", Scope::names);
    ASSERT_EQ(names.files.size(), 1u);
    EXPECT_EQ(names.files[0].file.relativePath, "Reports/Q3 100%.txt");
    EXPECT_EQ(find("common", Scope::names).messageKey, "history.search.contents.noMatches");
}

TEST_F(ContentSearchModelTest, CountsPendingTextsAtMostEvery30Seconds) {
    versions("a.txt", {"x"});
    const auto file = catalog.upsertFile(folder, "b.txt", std::nullopt, false, std::string("txt"));
    auto add = [&](const std::string& digest) {
        NewVersion version;
        version.fileID = file.id;
        version.capturedAt = (at += 60);
        version.digest = digest;
        version.slot = "versions/" + digest;
        version.payloadName = "b.txt";
        catalog.recordVersion(version);
    };
    add("pending-1");
    EXPECT_EQ(model.pending(), 1);
    add("pending-2");
    clock.advance(29.9);
    EXPECT_EQ(model.pending(), 1) << "counted again only after 30 s";
    clock.advance(0.1);
    EXPECT_EQ(model.pending(), 2);
}

}  // namespace
}  // namespace vosklin
