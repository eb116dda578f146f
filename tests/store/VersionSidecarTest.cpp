#include "store/VersionSidecar.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/FaultyFileSystem.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::FaultyFileSystem;
using test::TempDirectory;

VersionSidecar sample() {
    VersionSidecar sidecar;
    sidecar.originalPath = "/home/ana/Documents/Résumé – 2025.docx";
    sidecar.capturedAt = 1'740'839'525;
    sidecar.digest = std::string(64, 'a');
    sidecar.logicalBytes = 48213;
    sidecar.method = CloneMethod::cloned;
    sidecar.verified = true;
    sidecar.payloadName = "Résumé – 2025.docx";
    return sidecar;
}

TEST(VersionSidecarTest, EncodesSortedKeysIsoSecondsAndUnescapedUtf8) {
    const std::string text = sample().encode();
    std::vector<std::size_t> positions;
    for (const char* key : {"\"capturedAt\"", "\"digest\"", "\"logicalBytes\"", "\"method\"", "\"originalPath\"",
                            "\"payloadName\"", "\"verified\"", "\"version\""}) {
        positions.push_back(text.find(key));
        ASSERT_NE(positions.back(), std::string::npos) << key << " in\n" << text;
    }
    EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end())) << text;
    EXPECT_NE(text.find("\"capturedAt\": \"2025-03-01T14:32:05Z\""), std::string::npos) << text;
    EXPECT_NE(text.find("Résumé – 2025.docx"), std::string::npos) << "UTF-8 written as it is:\n" << text;
    EXPECT_NE(text.find("\"method\": \"cloned\""), std::string::npos);
    EXPECT_NE(text.find("\"version\": 1"), std::string::npos);
    EXPECT_NE(text.find("\n  \""), std::string::npos) << "pretty-printed";
    EXPECT_EQ(VersionSidecar::decode(text), sample());
}

TEST(VersionSidecarTest, FractionalCaptureInstantIsWrittenAsWholeSeconds) {
    auto sidecar = sample();
    sidecar.capturedAt = 1'740'839'525.999;
    EXPECT_NE(sidecar.encode().find("2025-03-01T14:32:05Z"), std::string::npos);
}

TEST(VersionSidecarTest, PathsThatAreNotUtf8RoundTripExactly) {
    auto sidecar = sample();
    sidecar.originalPath = "/srv/old/Entw\xfcrfe/caf\xe9.txt";
    sidecar.payloadName = "caf\xe9.txt";
    const std::string text = sidecar.encode();
    EXPECT_NE(text.find("\"originalPathBytes\": \"2f7372762f6f6c642f456e7477fc7266652f636166e92e747874\""),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("caf\xEF\xBF\xBD.txt"), std::string::npos) << "readable form with U+FFFD";
    EXPECT_EQ(VersionSidecar::decode(text), sidecar);
}

TEST(VersionSidecarTest, DecoderRefusesWhatIsNotASidecar) {
    EXPECT_THROW(VersionSidecar::decode("not json"), SidecarError);
    EXPECT_THROW(VersionSidecar::decode("{\"version\": 1}"), SidecarError);
    std::string text = sample().encode();
    text.replace(text.find("2025-03-01T14:32:05Z"), 20, "yesterday, teatime!!");
    EXPECT_THROW(VersionSidecar::decode(text), SidecarError);
}

TEST(VersionSidecarTest, WrittenAtomicallyBesideThePayload) {
    TempDirectory slot;
    FaultyFileSystem fileSystem;
    auto sidecar = sample();
    sidecar.method = CloneMethod::unknown;
    sidecar.payloadName = "Book.pages";
    sidecar.write(fileSystem, slot.path());
    EXPECT_EQ(VersionSidecar::read(fileSystem, slot.path()), sidecar);
    std::size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(slot.path())) ++entries;
    EXPECT_EQ(entries, 1u) << "no temporary file left beside it";

    // A full disk fails the write and leaves neither sidecar nor temporary file.
    TempDirectory other;
    fileSystem.fail(FaultyFileSystem::Operation::write, ENOSPC);
    EXPECT_THROW(sidecar.write(fileSystem, other.path()), std::exception);
    EXPECT_TRUE(std::filesystem::is_empty(other.path()));
}

}  // namespace
}  // namespace vosklin
