#include "store/PayloadDigest.h"

#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <cerrno>
#include <filesystem>

#include "platform/FileSystemError.h"
#include "platform/PosixFileSystem.h"
#include "support/FaultyFileSystem.h"
#include "support/SpecialFiles.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"

namespace vosklin {
namespace {

using test::TempDirectory;

std::string oneShotSha256(const std::string& bytes) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest);
    char hex[2 * SHA256_DIGEST_LENGTH + 1];
    for (int i = 0; i < SHA256_DIGEST_LENGTH; ++i) std::snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    return hex;
}

class PayloadDigestTest : public ::testing::Test {
protected:
    TempDirectory directory;
    PosixFileSystem fileSystem;
    PayloadDigest digest{fileSystem};
};

TEST_F(PayloadDigestTest, FileDigestIsLowercaseHexSha256AcrossChunkBoundaries) {
    EXPECT_EQ(digest.fileDigest(directory.write("empty", "")),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digest.fileDigest(directory.write("abc", "abc")),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // Two whole chunks and a bit: the streamed digest must equal a one-shot digest.
    std::string large(2 * PayloadDigest::chunkSize + 17, '\0');
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = char((i * 131) ^ (i >> 9));
    EXPECT_EQ(digest.fileDigest(directory.write("large", large)), oneShotSha256(large));
    EXPECT_EQ(digest.logicalSize(directory / "large", false), std::int64_t(large.size()));
    EXPECT_EQ(digest.logicalSize(directory / "empty", false), 0);
}

TEST_F(PayloadDigestTest, PackageDigestCoversEveryInnerPathAndContent) {
    directory.write("Book.pages/Index/Document.iwa", "document body");
    directory.write("Book.pages/Data/image.jpg", std::string(5000, 'j'));
    directory.write("Book.pages/preview.jpg", "pv");
    const std::string book = directory / "Book.pages";
    const std::string original = digest.packageDigest(book);
    EXPECT_EQ(original.size(), 64u);
    EXPECT_EQ(digest.logicalSize(book, true), 13 + 5000 + 2);

    // The same names and contents elsewhere give the same digest.
    std::filesystem::copy(book, directory / "Copy.pages", std::filesystem::copy_options::recursive);
    EXPECT_EQ(digest.packageDigest(directory / "Copy.pages"), original);
    // Sorted by relative path, each path then its bytes.
    EXPECT_EQ(original, oneShotSha256("Data/image.jpg" + std::string(5000, 'j') + "Index/Document.iwa" +
                                      "document body" + "preview.jpg" + "pv"));

    directory.write("Book.pages/Index/Document.iwa", "document bodY");
    const std::string edited = digest.packageDigest(book);
    EXPECT_NE(edited, original) << "content change";
    std::filesystem::rename(directory / "Book.pages/preview.jpg", directory / "Book.pages/preview2.jpg");
    EXPECT_NE(digest.packageDigest(book), edited) << "path change with the same bytes";
    // An empty directory adds nothing; a link is not followed.
    std::filesystem::create_directory(directory / "Copy.pages/Empty");
    std::filesystem::create_symlink("/etc/hostname", directory / "Copy.pages/link");
    EXPECT_EQ(digest.packageDigest(directory / "Copy.pages"), original);
}

// A read error is thrown with its errno. A live file's digest (a rewind's plan reads
// them) must not wait on what was put in its place: stop ends it after a whole chunk,
// and a pipe is refused.
TEST_F(PayloadDigestTest, FailuresStopsAndPipesAreThrownWithTheirErrno) {
    auto errnoOf = [](auto action) {
        auto error = test::thrown<FileSystemError>(action);
        return error ? error->errorNumber() : 0;
    };
    test::FaultyFileSystem faulty;
    PayloadDigest failing(faulty);
    const std::string path = directory.write("f", std::string(10, 'x'));
    faulty.fail(test::FaultyFileSystem::Operation::read, EIO);
    EXPECT_EQ(errnoOf([&] { failing.fileDigest(path); }), EIO);

    std::stop_source stop;
    stop.request_stop();
    const std::string small = directory.write("small", std::string(1000, 's'));
    EXPECT_EQ(digest.fileDigest(small, stop.get_token()), oneShotSha256(std::string(1000, 's')));
    const std::string large = directory.write("large", std::string(2 * PayloadDigest::chunkSize, 'l'));
    EXPECT_EQ(errnoOf([&] { digest.fileDigest(large, stop.get_token()); }), ECANCELED);
    std::string whyNot;
    ASSERT_TRUE(test::makeSpecialFile(test::SpecialFile::namedPipe, directory / "pipe", whyNot)) << whyNot;
    EXPECT_EQ(errnoOf([&] { digest.fileDigest(directory / "pipe"); }), EINVAL);
}

}  // namespace
}  // namespace vosklin
