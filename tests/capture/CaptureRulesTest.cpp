// Which paths are captured, and as what: exclusion, transient names, packages, cloud placeholders.
#include <gtest/gtest.h>

#include <filesystem>

#include "capture/CaptureUnitResolver.h"
#include "capture/CloudFileGuard.h"
#include "capture/ExcludeRules.h"
#include "capture/TransientNames.h"
#include "platform/PosixFileSystem.h"
#include "restore/SafePlacement.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::TempDirectory;

TEST(ExcludeRulesTest, PatternsMatchWholeComponentsAtEveryDepth) {
    const auto rules = ExcludeRules::standard({});
    EXPECT_EQ(ExcludeRules::builtInPatterns().size(), 16u);
    EXPECT_TRUE(rules.excludes("src/node_modules/x/index.js"));
    EXPECT_FALSE(rules.excludes("src/node_modules.txt"));
    EXPECT_TRUE(rules.excludes(".git/HEAD"));
    EXPECT_TRUE(rules.excludes("Film.fcpbundle/x"));
    EXPECT_TRUE(rules.excludes("a/App.xcodeproj/project.pbxproj"));
    EXPECT_FALSE(rules.excludes("notes/git-tips.md"));
    EXPECT_FALSE(rules.excludes("a//b"));

    const auto withUser = ExcludeRules::standard({"*.mov"});
    EXPECT_TRUE(withUser.excludes("clip.mov"));
    EXPECT_TRUE(withUser.excludes("deep/er/clip.mov"));
    EXPECT_TRUE(withUser.excludes("Trailer.mov/inside.txt")) << "a folder whose name ends in .mov";
    EXPECT_FALSE(withUser.excludes("clip.mov.txt"));
    EXPECT_TRUE(ExcludeRules({"*"}).excludes(".hidden")) << "no flags: * matches a leading dot";
    EXPECT_FALSE(ExcludeRules().excludes("anything/at/all"));

    // Restore's and rewind's scratch items, at any depth, by every rule set.
    const std::string scratch = SafePlacement::makeScratchName();
    for (const auto& any : {ExcludeRules(), rules, withUser}) {
        EXPECT_TRUE(any.excludes(scratch));
        EXPECT_TRUE(any.excludes("deep/er/" + scratch + "/TXT.rtf"));
        EXPECT_FALSE(any.excludes("vosklin-restore-notes.txt"));
    }
}

TEST(TransientNamesTest, EditorAndDownloadLeftoversAreNeverUnits) {
    EXPECT_EQ(TransientNames::patterns().size(), 30u);
    for (const char* name : {"~$Report.docx", ".DS_Store", "report.docx.sb-123-abc", "movie.mp4.crdownload",
                             ".~lock.budget.ods#", ".notes.md.swp", "draft.txt~", "#scratch#", ".#scratch",
                             "a.tmp", "setup.part", "._resource", ".nfs000001", "Word Work File L_123.tmp"}) {
        EXPECT_TRUE(TransientNames::isTransient(name)) << name;
    }
    for (const char* name : {"report.docx", "Report~final.docx", "temporary.txt", "swp", ".swp-notes"}) {
        EXPECT_FALSE(TransientNames::isTransient(name)) << name;
    }
}

TEST(CloudFileGuardTest, IcloudStandInsArePlaceholders) {
    CloudFileGuard guard;
    EXPECT_TRUE(guard.isPlaceholder("/d/.Report.docx.icloud"));
    EXPECT_TRUE(guard.isPlaceholder("/d/x.ICLOUD"));
    EXPECT_FALSE(guard.isPlaceholder("/d/icloud.txt"));
}

class CaptureUnitResolverTest : public ::testing::Test {
protected:
    CaptureUnitResolverTest() {
        directory.write("root/notes.txt", "n");
        directory.write("root/Book.pages/Data/x.jpg", "x");
        directory.write("root/Outer.bundle/Inner.rtfd/TXT.rtf", "r");
        directory.write("root/Tool.app/Contents/Info.plist", "p");
        directory.write("root/node_modules/pkg/index.js", "i");
        directory.write("root/plain/file.txt", "f");
        directory.write("outside/secret.txt", "s");
        std::filesystem::create_symlink(directory / "outside", directory / "root/link-out");
        std::filesystem::create_symlink(directory / "root/notes.txt", directory / "root/link-in.txt");
    }

    CaptureUnitResolver resolver(std::vector<std::string> userPackages = {}) {
        return CaptureUnitResolver(directory / "root", ExcludeRules::standard({}), PackageKinds(userPackages),
                                   fileSystem);
    }

    // The unit at `relative` below the root.
    CaptureUnitResolver::Unit unit(const std::string& relative, bool isPackage = false) {
        return {directory / ("root/" + relative), isPackage};
    }

    TempDirectory directory;
    PosixFileSystem fileSystem;
};

TEST_F(CaptureUnitResolverTest, FilesAreThemselvesAndPackageContentsAreThePackage) {
    auto r = resolver();
    EXPECT_EQ(r.resolve(directory / "root/notes.txt"), unit("notes.txt"));
    EXPECT_EQ(r.resolve(directory / "root/Book.pages/Data/x.jpg"), unit("Book.pages", true));
    EXPECT_EQ(r.resolve(directory / "root/Book.pages"), unit("Book.pages", true));
    EXPECT_EQ(r.resolve(directory / "root/Outer.bundle/Inner.rtfd/TXT.rtf"), unit("Outer.bundle", true))
        << "nested packages: the outermost is the document";
    EXPECT_EQ(r.resolve(directory / "root/Tool.app/Contents/Info.plist"), unit("Tool.app/Contents/Info.plist"))
        << "an application is never a unit";
    EXPECT_EQ(r.resolve(directory / "root/deleted-since.txt"), unit("deleted-since.txt"))
        << "a vanished file still resolves, so its deletion can be recorded";
}

TEST_F(CaptureUnitResolverTest, NothingForTheRootDirectoriesExcludedTransientOrOutsidePaths) {
    auto r = resolver();
    EXPECT_FALSE(r.resolve(directory / "root").has_value());
    EXPECT_FALSE(r.resolve(directory / "root/plain").has_value());
    EXPECT_FALSE(r.resolve(directory / "root/node_modules/pkg/index.js").has_value());
    EXPECT_FALSE(r.resolve(directory / "root/~$notes.docx").has_value());
    const std::string scratch = directory / ("root/" + SafePlacement::makeScratchName());
    EXPECT_FALSE(r.resolve(scratch).has_value()) << "a scratch copy being put back";
    EXPECT_FALSE(r.resolve(scratch + "/TXT.rtf").has_value()) << "inside a scratch package";
    EXPECT_FALSE(r.resolve(directory / "outside/secret.txt").has_value());
    EXPECT_FALSE(r.resolve(directory / "root/link-out/secret.txt").has_value()) << "through a link leaving the root";
    EXPECT_FALSE(r.resolve(directory / "root-sibling/x").has_value());
    // A link file inside the root is its own unit; capture then skips it as a link.
    EXPECT_EQ(r.resolve(directory / "root/link-in.txt"), unit("link-in.txt"));
}

TEST_F(CaptureUnitResolverTest, UserPackageExtensionsCount) {
    directory.write("root/Album.myphotos/img1.raw", "i");
    EXPECT_FALSE(resolver().resolve(directory / "root/Album.myphotos/img1.raw")->isPackage);
    EXPECT_EQ(resolver({".MyPhotos"}).resolve(directory / "root/Album.myphotos/img1.raw"),
              unit("Album.myphotos", true));
}

}  // namespace
}  // namespace vosklin
