#include "store/PayloadCloner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <optional>
#include <utility>

#include "platform/PosixFileSystem.h"
#include "store/CloneError.h"
#include "store/PayloadDigest.h"
#include "support/FaultyFileSystem.h"
#include "support/FolderImage.h"
#include "support/ManualClock.h"
#include "support/RecordingLogger.h"
#include "support/SpecialFiles.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"
#include "support/XfsImage.h"

namespace vosklin {
namespace {

using test::FaultyFileSystem;
using test::readFile;
using test::TempDirectory;
using Operation = FaultyFileSystem::Operation;

class PayloadClonerTest : public ::testing::Test {
protected:
    TempDirectory directory;
    FaultyFileSystem fileSystem;
    test::ManualClock clock;
    test::RecordingLogger logger;
    PayloadCloner cloner{fileSystem, clock, logger};
};

TEST_F(PayloadClonerTest, FileOnExt4IsCopiedWithModeTimesAndAttributes) {
    const std::string source = directory.write("report.txt", "quarterly numbers");
    ::chmod(source.c_str(), 0640);
    const timespec times[2] = {{1'600'000'000, 5}, {1'650'000'000, 123456789}};
    ::utimensat(AT_FDCWD, source.c_str(), times, 0);
    const bool attributes = ::setxattr(source.c_str(), "user.xdg.origin.url", "https://example.test/r", 22, 0) == 0;

    const std::string destination = directory / "copy.txt";
    CloneOutcome outcome = cloner.clone(source, destination);
    // The temp folder may be on any file system; what matters is the method matches what happened.
    EXPECT_TRUE(outcome.method == CloneMethod::copied || outcome.method == CloneMethod::cloned);
    EXPECT_GE(outcome.elapsed, 0);
    EXPECT_EQ(readFile(destination), "quarterly numbers");
    struct stat st {};
    ASSERT_EQ(::stat(destination.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(st.st_mtim.tv_sec, 1'650'000'000);
    EXPECT_EQ(st.st_mtim.tv_nsec, 123456789);
    if (attributes) {
        char value[64] = {};
        EXPECT_EQ(::getxattr(destination.c_str(), "user.xdg.origin.url", value, sizeof value), 22);
        EXPECT_STREQ(value, "https://example.test/r");
    }
}

TEST_F(PayloadClonerTest, RefusedCloneFallsBackToACopy) {
    const std::string source = directory.write("a.bin", std::string(100000, 'a'));
    fileSystem.fail(Operation::clone, EOPNOTSUPP);
    EXPECT_EQ(cloner.clone(source, directory / "b.bin").method, CloneMethod::copied);
    EXPECT_EQ(readFile(directory / "b.bin"), std::string(100000, 'a'));
    fileSystem.fail(Operation::clone, EXDEV);
    EXPECT_EQ(cloner.clone(source, directory / "c.bin").method, CloneMethod::copied);
}

// A clone that fails throws its kind and errno, leaves nothing behind, and
// leaves alone whatever stood at the destination.
TEST_F(PayloadClonerTest, FailuresThrowTheirKindAndErrnoAndLeaveNothingBehind) {
    using Kind = CloneError::Kind;
    directory.write("a.bin", "data");
    directory.write("taken.txt", "precious");
    directory.write("pkg.bundle/inner", "i");
    directory.write("taken.bundle/keep", "k");
    directory.write("Deck.key/a", "1");
    directory.write("Deck.key/b/c", "2");
    auto failure = [&](const std::string& source, const std::string& destination) -> std::optional<std::pair<Kind, int>> {
        auto error = test::thrown<CloneError>([&] { cloner.clone(directory / source, directory / destination); });
        if (!error) return std::nullopt;
        return std::pair(error->kind(), error->code());
    };
    fileSystem.fail(Operation::clone, EOPNOTSUPP);
    fileSystem.fail(Operation::copy, ENOSPC);
    EXPECT_EQ(failure("a.bin", "b.bin"), std::pair(Kind::failed, ENOSPC));
    fileSystem.fail(Operation::clone, EIO);  // a real I/O error is not a refusal: no silent copy
    EXPECT_EQ(failure("a.bin", "c.bin"), std::pair(Kind::failed, EIO));
    fileSystem.fail(Operation::create, ENOSPC, 1, "/c");
    EXPECT_EQ(failure("Deck.key", "out.key"), std::pair(Kind::failed, ENOSPC)) << "a package copy failing half-way";
    EXPECT_EQ(failure("nothing-here", "out"), std::pair(Kind::sourceMissing, ENOENT));
    for (const char* destination : {"b.bin", "c.bin", "out.key", "out"})
        EXPECT_FALSE(std::filesystem::exists(directory / destination)) << destination;

    EXPECT_EQ(failure("a.bin", "taken.txt"), std::pair(Kind::destinationExists, EEXIST));
    EXPECT_EQ(readFile(directory / "taken.txt"), "precious");
    EXPECT_EQ(failure("pkg.bundle", "taken.bundle"), std::pair(Kind::destinationExists, EEXIST));
    EXPECT_EQ(readFile(directory / "taken.bundle/keep"), "k");
}

// None of these is ever opened: a pipe without a writer would hold open(2) for good.
TEST_F(PayloadClonerTest, PipesSocketsAndDevicesAreNeverReadAndLeavePackagesWithoutThem) {
    directory.write("Notes.bundle/text.txt", "kept");
    for (auto kind : test::allSpecialFiles()) {
        SCOPED_TRACE(test::nameOf(kind));
        const std::string source = directory / (std::string("special-") + std::to_string(int(kind)));
        std::string whyNot;
        if (!test::makeSpecialFile(kind, source, whyNot)) {
            std::printf("skipped: %s\n", whyNot.c_str());
            continue;
        }
        test::makeSpecialFile(kind, directory / ("Notes.bundle/inner-" + std::to_string(int(kind))), whyNot);
        const std::string destination = source + ".copy";
        EXPECT_EQ(test::kindThrown<CloneError>([&] { cloner.clone(source, destination); }),
                  CloneError::Kind::sourceMissing);
        EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(destination)));
    }
    cloner.clone(directory / "Notes.bundle", directory / "Copy.bundle");
    EXPECT_EQ(test::imageOf(directory / "Copy.bundle"), (test::FolderImage{{"text.txt", "kept"}}));
}

// Stop is asked while the copy runs (as its first chunk is written): a file
// smaller than a chunk still finishes, anything longer ends after that chunk.
TEST_F(PayloadClonerTest, AStoppedCopyEndsAtTheNextChunkAndLeavesNothing) {
    struct Case {
        const char* name;
        std::size_t size;
        bool isPackage;
        bool stops;
    };
    const Case cases[] = {
        {"a file under a chunk", 300 * 1024, false, false},
        {"a file of three chunks", 3 * PayloadCloner::chunkSize, false, true},
        {"a package of small files", 10, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string source = directory / c.name;
        if (c.isPackage) {
            for (const char* item : {"a", "b", "c"}) directory.write(std::string(c.name) + "/" + item, "item");
        } else {
            directory.write(c.name, std::string(c.size, 'x'));
        }
        std::stop_source stop;
        fileSystem.fail(Operation::clone, EOPNOTSUPP, 10);  // copied, so in chunks
        fileSystem.beforeMutation = [&](Operation operation, const std::string&) {
            if (operation == Operation::copy) stop.request_stop();
        };
        const std::string destination = source + ".copy";
        try {
            cloner.clone(source, destination, stop.get_token());
            EXPECT_FALSE(c.stops) << "finished";
            EXPECT_EQ(std::filesystem::file_size(destination), c.size);
        } catch (const CloneError& error) {
            EXPECT_TRUE(c.stops) << error.what();
            EXPECT_EQ(error.kind(), CloneError::Kind::cancelled);
            EXPECT_FALSE(std::filesystem::exists(destination)) << "the partial copy is removed";
        }
        fileSystem.beforeMutation = nullptr;
    }
}

TEST_F(PayloadClonerTest, PackageIsCopiedRecursivelyWithMethodUnknown) {
    directory.write("Novel.scriv/Files/Data/1/content.rtf", "{\\rtf1 chapter one}");
    directory.write("Novel.scriv/Novel.scrivx", "<project/>");
    std::filesystem::create_directory(directory / "Novel.scriv/Empty");
    std::filesystem::create_symlink("Novel.scrivx", directory / "Novel.scriv/alias");
    ::chmod((directory / "Novel.scriv/Files").c_str(), 0750);

    const std::string destination = directory / "slot/Novel.scriv";
    std::filesystem::create_directory(directory / "slot");
    EXPECT_EQ(cloner.clone(directory / "Novel.scriv", destination).method, CloneMethod::unknown);
    EXPECT_EQ(readFile(destination + "/Files/Data/1/content.rtf"), "{\\rtf1 chapter one}");
    EXPECT_EQ(readFile(destination + "/Novel.scrivx"), "<project/>");
    EXPECT_TRUE(std::filesystem::is_directory(destination + "/Empty"));
    EXPECT_TRUE(std::filesystem::is_symlink(destination + "/alias")) << "links are copied as links";
    EXPECT_EQ(std::filesystem::read_symlink(destination + "/alias"), "Novel.scrivx");
    struct stat st {};
    ::stat((destination + "/Files").c_str(), &st);
    EXPECT_EQ(st.st_mode & 07777, 0750u);
    PosixFileSystem real;
    PayloadDigest digest(real);
    EXPECT_EQ(digest.packageDigest(destination), digest.packageDigest(directory / "Novel.scriv"));
}

TEST_F(PayloadClonerTest, PackageCopyFailingHalfWayRemovesThePartialCopy) {
    directory.write("Deck.key/a", "1");
    directory.write("Deck.key/b/c", "2");
    fileSystem.fail(Operation::create, ENOSPC, 1, "/c");
    EXPECT_THROW(cloner.clone(directory / "Deck.key", directory / "out.key"), CloneError);
    EXPECT_FALSE(std::filesystem::exists(directory / "out.key"));
}

TEST_F(PayloadClonerTest, ALockedFileIsCopiedAnywayAfterTryingForASecond) {
    const std::string source = directory.write("locked.txt", "held");
    int holder = ::open(source.c_str(), O_RDONLY);
    ASSERT_EQ(::flock(holder, LOCK_EX), 0);
    const double start = clock.now();
    EXPECT_NO_THROW(cloner.clone(source, directory / "copy.txt"));
    ::close(holder);
    EXPECT_EQ(readFile(directory / "copy.txt"), "held");
    EXPECT_GE(clock.now() - start, 1.0) << "it kept trying for the whole second";
    EXPECT_LT(clock.now() - start, 1.1);
    EXPECT_TRUE(logger.contains("File coordination declined (11); cloning uncoordinated"));
    EXPECT_GT(fileSystem.count(Operation::lock), 10);

    // Unlocked: no log line, no waiting.
    const auto logged = logger.messages().size();
    const double before = clock.now();
    cloner.clone(source, directory / "copy2.txt");
    EXPECT_EQ(logger.messages().size(), logged);
    EXPECT_EQ(clock.now(), before);
}

TEST(PayloadClonerXfsTest, ReflinkFileSystemRecordsCloned) {
    std::string whyNot;
    auto image = test::XfsImage::mount(whyNot);
    if (!image) GTEST_SKIP() << "no reflink XFS here: " << whyNot;
    PosixFileSystem fileSystem;
    test::ManualClock clock;
    test::RecordingLogger logger;
    PayloadCloner cloner(fileSystem, clock, logger);
    const std::string source = image->mountPoint() + "/big.bin";
    test::writeFile(source, std::string(4 << 20, 'x'));
    EXPECT_EQ(cloner.clone(source, image->mountPoint() + "/clone.bin").method, CloneMethod::cloned);
    EXPECT_EQ(readFile(image->mountPoint() + "/clone.bin"), std::string(4 << 20, 'x'));
    // A package's files are cloned too, though the package's method stays unknown.
    std::filesystem::create_directories(image->mountPoint() + "/Film.bundle/media");
    test::writeFile(image->mountPoint() + "/Film.bundle/media/a.mov", "frames");
    EXPECT_EQ(cloner.clone(image->mountPoint() + "/Film.bundle", image->mountPoint() + "/copy.bundle").method,
              CloneMethod::unknown);
    EXPECT_EQ(readFile(image->mountPoint() + "/copy.bundle/media/a.mov"), "frames");
}

}  // namespace
}  // namespace vosklin
