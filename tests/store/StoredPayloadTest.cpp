#include "store/StoredPayload.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/PosixFileSystem.h"
#include "store/PayloadDigest.h"
#include "store/Sha256.h"
#include "support/TempDirectory.h"
#include "support/Thrown.h"

namespace vosklin {
namespace {

using test::TempDirectory;

class StoredPayloadTest : public ::testing::Test {
protected:
    // A file version stored under versions/2a/42/slot with the digest of `contents`.
    StoredVersion store(const std::string& contents) {
        directory.write("store/versions/2a/42/slot/notes.txt", contents);
        StoredVersion version;
        version.id = 7;
        version.slot = "versions/2a/42/slot";
        version.payloadName = "notes.txt";
        version.digest = Sha256::of(contents);
        version.logicalBytes = std::int64_t(contents.size());
        return version;
    }
    StoredPayload payload(const StoredVersion& version, bool isPackage = false) {
        return StoredPayload(fileSystem, layout, version, isPackage);
    }
    void damage(const std::string& contents) { test::writeFile(directory / "store/versions/2a/42/slot/notes.txt", contents); }

    TempDirectory directory;
    PosixFileSystem fileSystem;
    VersionStoreLayout layout{directory / "store", fileSystem};
};

TEST_F(StoredPayloadTest, CatalogRowsThatLeadOutOfTheStoreAreRefusedBeforeAnyRead) {
    const StoredVersion intact = store("words\n");
    struct Row {
        const char* slot;
        const char* name;
    };
    for (const Row& row : {Row{"", "notes.txt"}, Row{"/versions/2a/42/slot", "notes.txt"},
                           Row{"versions/2a/../2a/42/slot", "notes.txt"}, Row{"versions/2a/42/slot/..", "slot"},
                           Row{"versions/2a/42", ".."}, Row{"versions/2a/42", "."}, Row{"versions/2a/42", "slot/notes.txt"},
                           Row{"versions/2a/42/slot", ""}}) {
        StoredVersion version = intact;
        version.slot = row.slot;
        version.payloadName = row.name;
        EXPECT_EQ(test::kindThrown<StoredPayloadError>([&] { payload(version).locate(); }),
                  StoredPayloadError::Kind::outsideStore)
            << "'" << row.slot << "' + '" << row.name << "'";
    }
    EXPECT_EQ(payload(intact).locate(), directory / "store/versions/2a/42/slot/notes.txt");
    StoredVersion gone = intact;
    gone.payloadName = "other.txt";
    auto missing = test::thrown<StoredPayloadError>([&] { payload(gone).locate(); });
    ASSERT_TRUE(missing) << "a missing payload was located";
    EXPECT_EQ(missing->kind(), StoredPayloadError::Kind::missing);
    EXPECT_STREQ(missing->what(), "The stored copy of version 7 is missing from the store");
}

// Intact bytes come out whole across chunk boundaries; changed ones (same length,
// longer, shorter) never do.
TEST_F(StoredPayloadTest, ReadsHandOutOnlyBytesThatMatchTheDigest) {
    std::string large(2 * PayloadDigest::chunkSize + 17, '\0');
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = char((i * 131) ^ (i >> 9));
    const StoredVersion version = store(large);
    std::ostringstream streamed;
    payload(version).streamTo(streamed);
    EXPECT_TRUE(streamed.str() == large) << "streamed " << streamed.str().size() << " bytes";
    EXPECT_TRUE(payload(version).read() == large);

    std::string flipped = large;
    flipped[PayloadDigest::chunkSize + 3] ^= 1;
    for (const std::string& changed : {flipped, large + "x", large.substr(0, large.size() - 1)}) {
        damage(changed);
        std::ostringstream out;
        EXPECT_THROW(payload(version).streamTo(out), StoredPayloadError) << changed.size();
        EXPECT_TRUE(out.str().empty()) << "nothing goes out before the check: " << out.str().size() << " bytes";
        EXPECT_THROW(payload(version).read(), StoredPayloadError) << changed.size();
    }
}

}  // namespace
}  // namespace vosklin
