// Which paths may become watched folders, and the record made for one that may.
#include "bridge/FolderAdmission.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "bridge/FolderListError.h"
#include "platform/Uuid.h"
#include "support/FaultyFileSystem.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"
#include "support/WorkingDirectory.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using Kind = FolderListError::Kind;
using test::TempDirectory;

class FolderAdmissionTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Admission only looks: any write while deciding is a bug.
        fileSystem.beforeMutation = [this](test::FaultyFileSystem::Operation, const std::string& path) {
            mutations.push_back(path);
        };
    }

    void TearDown() override {
        EXPECT_TRUE(mutations.empty()) << "admission wrote to " << mutations.front();
        EXPECT_FALSE(fs::exists(container)) << "admission made the data folder";
    }

    // A real directory below `place`, by its canonical path.
    std::string makeFolder(const std::string& relative) {
        fs::create_directories(place / relative);
        return fs::canonical(place / relative).string();
    }

    // Why `path` was refused (by `by`, else the fixture's admission), or nothing when it was admitted.
    std::optional<Kind> refusal(const std::string& path, const std::vector<WatchedFolder>& watched = {},
                                FolderAdmission* by = nullptr) {
        auto error = test::thrown<FolderListError>(
            [&] { (by ? *by : admission).admit(path, CaptureMode::automatic, watched); });
        if (!error) return std::nullopt;
        EXPECT_FALSE(std::string(error->what()).empty());
        return error->kind();
    }

    static WatchedFolder watching(const std::string& path) {
        WatchedFolder folder;
        folder.id = makeUuid();
        folder.path = path;
        return folder;
    }

    TempDirectory place;     // where the user's folders are
    TempDirectory fakeHome;  // stands in for $HOME
    const std::string home = fs::canonical(fakeHome.path()).string();
    // Where Vosklin's data would go; deliberately not made yet.
    const std::string container = home + "/.local/share/vosklin";
    test::FaultyFileSystem fileSystem;
    std::vector<std::string> mutations;
    StoreLocator locator{container};
    FolderAdmission admission{fileSystem, locator, home};
};

TEST_F(FolderAdmissionTest, SomethingThatIsNotAnExistingFolderIsNotAFolder) {
    EXPECT_EQ(refusal(place / "missing"), Kind::notAFolder);
    const std::string file = place.write("notes.txt", "text");
    EXPECT_EQ(refusal(file), Kind::notAFolder);
    auto error = test::thrown<FolderListError>([&] { admission.admit(place / "missing", CaptureMode::automatic, {}); });
    ASSERT_TRUE(error);
    EXPECT_NE(std::string(error->what()).find(place / "missing"), std::string::npos) << error->what();
}

TEST_F(FolderAdmissionTest, UnreadableFolderIsRefused) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads every folder";
    const std::string locked = makeFolder("locked");
    ::chmod(locked.c_str(), 0);
    auto kind = refusal(locked);
    ::chmod(locked.c_str(), 0700);
    EXPECT_EQ(kind, Kind::unreadable);
}

TEST_F(FolderAdmissionTest, SystemRootsAndTheHomeFolderAreReserved) {
    EXPECT_EQ(refusal("/"), Kind::reservedRoot);
    EXPECT_EQ(refusal(home), Kind::reservedRoot);
    EXPECT_EQ(refusal(home + "/"), Kind::reservedRoot) << "a trailing slash is the same folder";
    EXPECT_EQ(refusal("/proc"), Kind::reservedRoot);
    EXPECT_EQ(refusal("/proc/sys"), Kind::reservedRoot);
    fs::create_directories(home + "/.cache/thumbnails");
    EXPECT_EQ(refusal(home + "/.cache"), Kind::reservedRoot);
    EXPECT_EQ(refusal(home + "/.cache/thumbnails"), Kind::reservedRoot);
    // Inside the home folder is where the user's work is.
    fs::create_directories(home + "/Documents");
    EXPECT_EQ(refusal(home + "/Documents"), std::nullopt);
    fs::create_directories(home + "/.cache-old");
    EXPECT_EQ(refusal(home + "/.cache-old"), std::nullopt) << "only .cache itself is reserved";
}

TEST_F(FolderAdmissionTest, HomeFolderReachedThroughALinkIsStillTheHomeFolder) {
    // The folder is compared by its real path, so the home folder must be too:
    // a $HOME that goes through a symbolic link (an automounted /home,
    // /home -> /var/home) or ends in a slash must not let the whole home
    // folder, or its .cache, be watched.
    const std::string realHome = makeFolder("users/ann");
    fs::create_directories(realHome + "/.cache");
    fs::create_directory_symlink(place / "users", place / "home");
    for (const std::string& homeVariable : {place / "home/ann", realHome + "/"}) {
        FolderAdmission admitting(fileSystem, locator, homeVariable);
        for (const std::string& path : {realHome, realHome + "/.cache"})
            EXPECT_EQ(refusal(path, {}, &admitting), Kind::reservedRoot) << path << " with HOME=" << homeVariable;
    }
}

TEST_F(FolderAdmissionTest, VosklinsOwnDataCannotBeWatchedNorAnythingAroundIt) {
    // Before the data folder exists its recorded place still counts.
    fs::create_directories(home + "/.local");
    EXPECT_EQ(refusal(home + "/.local"), Kind::overlapsStore);
    EXPECT_EQ(refusal(fakeHome.path() + "/.local/../.local"), Kind::overlapsStore);

    fs::create_directories(container + "/store/versions");
    EXPECT_EQ(refusal(container), Kind::overlapsStore);
    EXPECT_EQ(refusal(container + "/store/versions"), Kind::overlapsStore);
    EXPECT_EQ(refusal(home + "/.local/share"), Kind::overlapsStore);
    fs::create_directories(home + "/.local/share/vosklin-notes");
    EXPECT_EQ(refusal(home + "/.local/share/vosklin-notes"), std::nullopt) << "a sibling sharing a prefix";
    fs::remove_all(home + "/.local");  // for the check that admission made nothing
}

TEST_F(FolderAdmissionTest, DataFolderGivenThroughALinkIsStillRecognised) {
    const std::string realData = makeFolder("data");
    fs::create_directory_symlink(realData, place / "data-link");
    StoreLocator linked(place / "data-link");
    FolderAdmission throughLink(fileSystem, linked, home);
    fs::create_directories(realData + "/store");
    for (const std::string& path : {realData, realData + "/store", fs::canonical(place.path()).string()})
        EXPECT_EQ(refusal(path, {}, &throughLink), Kind::overlapsStore) << path;
}

TEST_F(FolderAdmissionTest, FolderAlreadyWatchedInsideOrAroundOneIsRefused) {
    const std::string work = makeFolder("work");
    makeFolder("work/drafts");
    const std::string sibling = makeFolder("work-old");
    const std::vector<WatchedFolder> watched = {watching(work)};
    EXPECT_EQ(refusal(work, watched), Kind::overlapsWatched);
    EXPECT_EQ(refusal(work + "/drafts", watched), Kind::overlapsWatched);
    EXPECT_EQ(refusal(place.path(), watched), Kind::overlapsWatched);
    fs::create_directory_symlink(work, place / "work-link");
    EXPECT_EQ(refusal(place / "work-link", watched), Kind::overlapsWatched) << "the same folder by another name";
    EXPECT_EQ(refusal(sibling, watched), std::nullopt) << "a sibling sharing a prefix";
}

TEST_F(FolderAdmissionTest, FolderOnAnotherVolumeThanTheStoreIsRefused) {
    const std::string elsewhere = makeFolder("elsewhere");
    // The data folder (not made yet) is found through its nearest existing parent, the home folder.
    const std::string homePrefix = home + "/";
    StoreLocator twoVolumes(container, [&](const std::string& path) -> std::optional<std::string> {
        return path == home || path.starts_with(homePrefix) ? "8:1" : "8:2";
    });
    FolderAdmission admitting(fileSystem, twoVolumes, home);
    auto error = test::thrown<FolderListError>([&] { admitting.admit(elsewhere, CaptureMode::automatic, {}); });
    ASSERT_TRUE(error) << "a folder on another volume was admitted";
    EXPECT_EQ(error->kind(), Kind::unsupportedVolume);
    EXPECT_NE(std::string(error->what()).find("8:2"), std::string::npos) << error->what();
    fs::create_directories(home + "/Documents");
    EXPECT_EQ(refusal(home + "/Documents", {}, &admitting), std::nullopt) << "same volume as the store";

    StoreLocator unreadable(container, [](const std::string&) -> std::optional<std::string> { return std::nullopt; });
    FolderAdmission blind(fileSystem, unreadable, home);
    EXPECT_EQ(refusal(elsewhere, {}, &blind), Kind::unsupportedVolume) << "its volume cannot be told";
}

TEST_F(FolderAdmissionTest, AdmittedFolderIsRecordedByItsRealPathAndIdentity) {
    const std::string real = makeFolder("projects/thesis");
    fs::create_directory_symlink(real, place / "thesis-link");
    WatchedFolder folder = admission.admit(place / "thesis-link", CaptureMode::manual, {});

    EXPECT_TRUE(isUuid(folder.id)) << folder.id;
    EXPECT_EQ(folder.path, real) << "recorded by where it really is, not by the link";
    struct stat st {};
    ASSERT_EQ(::stat(real.c_str(), &st), 0);
    EXPECT_EQ(folder.device, std::uint64_t(st.st_dev));
    EXPECT_EQ(folder.inode, std::uint64_t(st.st_ino));
    EXPECT_EQ(folder.mode, CaptureMode::manual);
    EXPECT_FALSE(folder.isPaused);
    EXPECT_EQ(folder.budget.kind, FolderBudget::Kind::automatic);

    WatchedFolder again = admission.admit(real, CaptureMode::automatic, {});
    EXPECT_NE(again.id, folder.id) << "every admission gets a fresh id";
    EXPECT_EQ(again.mode, CaptureMode::automatic);

    test::WorkingDirectory inside(place / "projects");
    EXPECT_EQ(admission.admit("./thesis/../thesis", CaptureMode::automatic, {}).path, real);
}

}  // namespace
}  // namespace vosklin
