#include "store/VersionSidecar.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/EditedText.h"
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
    auto fractional = sample();
    fractional.capturedAt = 1'740'839'525.999;
    EXPECT_NE(fractional.encode().find("2025-03-01T14:32:05Z"), std::string::npos) << "whole seconds, never rounded up";
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

// Each case changes one thing in a good sidecar's text; a catalog rebuilt from
// sidecars must never take a payload name that leaves its slot.
struct RefusedSidecar {
    const char* why;
    std::string from;
    std::string to;
};
void PrintTo(const RefusedSidecar& refused, std::ostream* out) { *out << refused.why; }

class SidecarDecoderRefusalTest : public ::testing::TestWithParam<RefusedSidecar> {};

TEST_P(SidecarDecoderRefusalTest, Refuses) {
    const auto& refused = GetParam();
    const auto text = test::editedText(sample().encode(), refused.from, refused.to);
    ASSERT_TRUE(text) << refused.from;
    EXPECT_THROW(VersionSidecar::decode(*text), SidecarError) << refused.why << ":\n" << *text;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SidecarDecoderRefusalTest,
    ::testing::Values(
        RefusedSidecar{"not JSON", "", "not json"}, RefusedSidecar{"keys missing", "", "{\"version\": 1}"},
        RefusedSidecar{"instant", "2025-03-01T14:32:05Z", "yesterday, teatime!!"},
        RefusedSidecar{"parent in payload name", "\"payloadName\": \"Résumé", "\"payloadName\": \"../../Résumé"},
        RefusedSidecar{"path in payload name", "\"payloadName\": \"Résumé", "\"payloadName\": \"sub/Résumé"},
        RefusedSidecar{"dot-dot payload name", "\"payloadName\": \"Résumé – 2025.docx\"", "\"payloadName\": \"..\""},
        RefusedSidecar{"empty payload name", "\"payloadName\": \"Résumé – 2025.docx\"", "\"payloadName\": \"\""},
        RefusedSidecar{"short digest", std::string(64, 'a'), std::string(63, 'a')},
        RefusedSidecar{"upper-case digest", std::string(64, 'a'), std::string(64, 'A')},
        RefusedSidecar{"negative size", "48213", "-1"},
        RefusedSidecar{"size beyond any integer", "48213", "1e300"},
        RefusedSidecar{"fractional size", "48213", "48213.5"},
        RefusedSidecar{"unknown method", "\"cloned\"", "\"teleported\""},
        RefusedSidecar{"newer format", "\"version\": 1", "\"version\": 2"},
        RefusedSidecar{"relative original path", "\"/home/ana", "\"home/ana"}),
    [](const auto& param) {
        std::string name = param.param.why;
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    });

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
