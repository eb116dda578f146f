// folders.json: what goes in comes back out, folders are found by any name the
// user may give them, and a damaged list is never replaced by a smaller one.
#include "bridge/FolderList.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>

#include "bridge/FolderListError.h"
#include "platform/PosixFileSystem.h"
#include "platform/Uuid.h"
#include "support/FaultyFileSystem.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"
#include "support/WorkingDirectory.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using test::TempDirectory;

class FolderListTest : public ::testing::Test {
protected:
    std::string makeFolder(const std::string& relative) {
        fs::create_directories(place / relative);
        return fs::canonical(place / relative).string();
    }

    WatchedFolder watched(const std::string& path) {
        WatchedFolder folder;
        folder.id = makeUuid();
        folder.path = path;
        return folder;
    }

    // What require() refuses `asked` with, or nothing when it found a folder.
    std::optional<FolderListError::Kind> requireFails(const std::string& asked) {
        return test::kindThrown<FolderListError>([&] { list.require(asked); });
    }

    TempDirectory config;
    TempDirectory place;
    PosixFileSystem fileSystem;
    const std::string listPath = config / "vosklin/folders.json";  // its folder is made on the first save
    FolderList list{listPath, fileSystem};
};

TEST_F(FolderListTest, MissingFileIsAnEmptyListAndReadingItWritesNothing) {
    EXPECT_TRUE(list.folders().empty());
    EXPECT_FALSE(fs::exists(config / "vosklin"));
    EXPECT_FALSE(list.folderContaining(place / "a.txt").has_value());
    EXPECT_EQ(requireFails(place.path()), FolderListError::Kind::unknownFolder);
}

TEST_F(FolderListTest, ChangesRoundTripThroughTheFileWithEveryField) {
    WatchedFolder plain = watched("/srv/plain");
    plain.device = 2049;
    plain.inode = 1ull << 40;  // beyond 32 bits, as on large file systems
    WatchedFolder tuned = watched("/srv/tuned");
    tuned.mode = CaptureMode::manual;
    tuned.isPaused = true;
    tuned.budget = {FolderBudget::Kind::bytes, 20'000'000'000};
    tuned.device = 64769;
    tuned.inode = 12;
    list.append(plain);
    list.append(tuned);

    FolderList reread(listPath, fileSystem);  // nothing is cached: every read is of the file
    EXPECT_EQ(reread.folders(), (std::vector<WatchedFolder>{plain, tuned}));

    plain.budget.kind = FolderBudget::Kind::unlimited;
    plain.isPaused = true;
    reread.replace(plain);
    tuned.budget = {FolderBudget::Kind::automatic, 0};
    tuned.mode = CaptureMode::automatic;
    reread.replace(tuned);
    EXPECT_EQ(list.folders(), (std::vector<WatchedFolder>{plain, tuned}));

    list.remove(plain.id, false);
    EXPECT_EQ(reread.folders(), std::vector<WatchedFolder>{tuned});
    list.remove(tuned.id, false);
    EXPECT_TRUE(reread.folders().empty());
    EXPECT_TRUE(reread.retired().empty()) << "history forgotten: nothing to reconnect";
    EXPECT_TRUE(fs::exists(listPath)) << "an empty list is still a list";
}

TEST_F(FolderListTest, AFolderRemovedWithItsHistoryKeptTakesItsIdBackWhenAddedAgain) {
    WatchedFolder first = watched("/srv/docs");
    list.append(first);
    list.remove(first.id, true);
    EXPECT_TRUE(list.folders().empty());
    ASSERT_EQ(list.retired().size(), 1u);

    WatchedFolder other = watched("/srv/elsewhere");
    EXPECT_EQ(list.append(other).id, other.id) << "another path is another folder";
    WatchedFolder again = watched("/srv/docs");
    again.mode = CaptureMode::manual;
    ASSERT_NE(again.id, first.id);
    auto added = list.append(again);
    EXPECT_EQ(added.id, first.id) << "the id by which its history is kept";
    EXPECT_EQ(added.mode, CaptureMode::manual) << "the rest is as asked now";
    EXPECT_TRUE(list.retired().empty());
    EXPECT_EQ(list.require("/srv/docs").id, first.id);
}

TEST_F(FolderListTest, PathThatIsNotUtf8RoundTripsByteForByte) {
    WatchedFolder latin1 = watched(place / "caf\xe9");
    list.append(latin1);
    ASSERT_EQ(list.folders().size(), 1u);
    EXPECT_EQ(list.folders().front().path, latin1.path);
    // The file stays valid JSON for other readers.
    EXPECT_TRUE(nlohmann::json::accept(test::readFile(listPath)));

    fs::create_directory(latin1.path);
    auto found = list.folderContaining(latin1.path + "/r\xe9sum\xe9.txt");
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->first.id, latin1.id);
    EXPECT_EQ(found->second, "r\xe9sum\xe9.txt");
}

TEST_F(FolderListTest, RequireFindsAFolderByIdOrByAnyPathToIt) {
    const std::string work = makeFolder("work");
    makeFolder("work/drafts");
    WatchedFolder folder = watched(work);
    list.append(watched(makeFolder("other")));
    list.append(folder);

    EXPECT_EQ(list.require(folder.id), folder);
    std::string lower = folder.id;
    for (char& c : lower) c = char(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(list.require(lower).id, folder.id);
    EXPECT_EQ(list.require(work).id, folder.id);
    EXPECT_EQ(list.require(work + "/").id, folder.id);
    EXPECT_EQ(list.require(work + "/drafts/..").id, folder.id);
    fs::create_directory_symlink(work, place / "work-link");
    EXPECT_EQ(list.require(place / "work-link").id, folder.id);
    {
        test::WorkingDirectory inside(place.path());
        EXPECT_EQ(list.require("work").id, folder.id);
        EXPECT_EQ(list.require("./work").id, folder.id);
    }
    {
        test::WorkingDirectory inside(work + "/drafts");
        EXPECT_EQ(list.require("..").id, folder.id);
    }

    // Removed from disk, it is still known by the path it had.
    fs::remove_all(work);
    EXPECT_EQ(list.require(work).id, folder.id);
}

TEST_F(FolderListTest, RequireRefusesWhatIsNotAWatchedFolder) {
    const std::string work = makeFolder("work");
    makeFolder("work/drafts");
    list.append(watched(work));
    EXPECT_EQ(requireFails(work + "/drafts"), FolderListError::Kind::unknownFolder) << "inside is not the folder";
    EXPECT_EQ(requireFails(place / "nowhere"), FolderListError::Kind::unknownFolder);
    EXPECT_EQ(requireFails(makeUuid()), FolderListError::Kind::unknownFolder);
    EXPECT_EQ(requireFails(""), FolderListError::Kind::unknownFolder) << "the working directory is not watched";
    auto error = test::thrown<FolderListError>([&] { list.require("no-such-folder"); });
    ASSERT_TRUE(error) << "found a folder that is not there";
    EXPECT_NE(std::string(error->what()).find("no-such-folder"), std::string::npos) << error->what();
}

TEST_F(FolderListTest, FolderContainingGivesTheFolderAndThePathBelowIt) {
    const std::string abc = makeFolder("abc");
    const std::string sibling = makeFolder("abc-other");
    WatchedFolder folder = watched(abc);
    list.append(folder);
    place.write("abc/notes/today.txt", "x");

    auto inside = list.folderContaining(abc + "/notes/today.txt");
    ASSERT_TRUE(inside.has_value());
    EXPECT_EQ(inside->first, folder);
    EXPECT_EQ(inside->second, "notes/today.txt");

    auto deleted = list.folderContaining(abc + "/notes/gone.txt");
    ASSERT_TRUE(deleted.has_value()) << "a deleted file is still found by its path";
    EXPECT_EQ(deleted->second, "notes/gone.txt");

    auto root = list.folderContaining(abc);
    ASSERT_TRUE(root.has_value());
    EXPECT_EQ(root->first.id, folder.id);
    EXPECT_EQ(root->second, "");

    fs::create_directory_symlink(abc + "/notes", place / "notes-link");
    auto throughLink = list.folderContaining(place / "notes-link/today.txt");
    ASSERT_TRUE(throughLink.has_value());
    EXPECT_EQ(throughLink->second, "notes/today.txt");

    EXPECT_FALSE(list.folderContaining(sibling).has_value());
    EXPECT_FALSE(list.folderContaining(sibling + "/x.txt").has_value());
    EXPECT_FALSE(list.folderContaining(place.path()).has_value());
}

TEST_F(FolderListTest, DamagedListIsRefusedAndNeverOverwritten) {
    const auto withBudget = [](const std::string& budget) {
        return "{\"folders\": [{\"id\": \"A\", \"path\": \"/srv/a\", \"budgetBytes\": " + budget + "}]}";
    };
    // A budget no command could have set is not taken for "automatic" either.
    for (const std::string& damaged :
         {std::string("{\"folders\": [ {\"id\": \"A\", \"pa"), std::string("{\"folders\": 3}"), std::string("[]"),
          std::string("{\"folders\": [{\"path\": \"/no/id\"}]}"), withBudget("-5"), withBudget("1e30"),
          withBudget("18446744073709551615"), withBudget("\"lots\""), withBudget("20"), withBudget("[1]"),
          std::string("{\"folders\": [{\"id\": \"A\", \"path\": \"/srv/x\", \"st_dev\": 1e300}]}"),
          std::string("{\"folders\": [{\"id\": \"A\", \"path\": \"/srv/x\", \"st_ino\": -1.5}]}")}) {
        SCOPED_TRACE(damaged);
        if (damaged.find("budgetBytes") != std::string::npos) {
            config.write("vosklin/folders.json", damaged);
            try {
                list.folders();
            } catch (const FolderListError& error) {
                EXPECT_NE(std::string(error.what()).find("the budget of folder A is "), std::string::npos)
                    << error.what();
            }
        }
        config.write("vosklin/folders.json", damaged);
        for (const auto& action : std::vector<std::function<void()>>{
                 [&] { list.folders(); }, [&] { list.require("/srv/x"); }, [&] { list.append(watched("/srv/new")); },
                 [&] { list.replace(watched("/srv/new")); }, [&] { list.remove("A", true); }})
            EXPECT_EQ(test::kindThrown<FolderListError>(action), FolderListError::Kind::malformedList);
        EXPECT_EQ(test::readFile(listPath), damaged);
    }
}

TEST_F(FolderListTest, ListThatCannotBeReadIsRefusedAndNeverOverwritten) {
    list.append(watched("/srv/kept"));
    const std::string before = test::readFile(listPath);
    test::FaultyFileSystem failing;
    FolderList unreadable(listPath, failing);
    failing.fail(test::FaultyFileSystem::Operation::read, EIO, 2);
    for (const auto& action : std::vector<std::function<void()>>{[&] { unreadable.folders(); },
                                                                 [&] { unreadable.append(watched("/srv/new")); }})
        EXPECT_EQ(test::kindThrown<FolderListError>(action), FolderListError::Kind::malformedList)
            << "a list that could not be read was taken as empty";
    EXPECT_EQ(test::readFile(listPath), before);
}

}  // namespace
}  // namespace vosklin
