#include "capture/PayloadVerifier.h"

#include <gtest/gtest.h>

#include "platform/PosixFileSystem.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::TempDirectory;

TEST(PayloadVerifierTest, FormatsWithAnEndMarkerAreVerifiedOnlyWhenComplete) {
    TempDirectory directory;
    PosixFileSystem fileSystem;
    PayloadVerifier verifier(fileSystem);
    auto verified = [&](const std::string& name, const std::string& bytes) {
        return verifier.isVerified(directory.write(name, bytes), false);
    };
    const std::string eocd = std::string("PK\x05\x06", 4) + std::string(18, '\0');
    const std::string iend = std::string("\0\0\0\0IEND\xAE\x42\x60\x82", 12);

    EXPECT_TRUE(verified("a.pdf", "%PDF-1.7\n...\n%%EOF\n"));
    EXPECT_TRUE(verified("b.PDF", "%PDF-1.4 body %%EOF\r\n\r\n"));
    EXPECT_FALSE(verified("c.pdf", "%PDF-1.7\n1 0 obj << /Len"));
    EXPECT_FALSE(verified("d.pdf", "")) << "an empty PDF is not a PDF";
    EXPECT_TRUE(verified("e.docx", "PK\x03\x04" + std::string(70000, 'z') + eocd));
    EXPECT_FALSE(verified("f.docx", "PK\x03\x04" + std::string(70000, 'z')));
    EXPECT_FALSE(verified("f2.odt", eocd + std::string(70000, 'z'))) << "the record must be near the end";
    EXPECT_TRUE(verified("g.png", "\x89PNG" + std::string(100, 'p') + iend));
    EXPECT_FALSE(verified("h.png", "\x89PNG" + std::string(100, 'p')));
    EXPECT_TRUE(verified("i.jpg", "\xFF\xD8" + std::string(100, 'j') + "\xFF\xD9"));
    EXPECT_TRUE(verified("j.jpeg", "\xFF\xD8" + std::string(100, 'j') + "\xFF\xD9" + std::string(3, '\0')));
    EXPECT_FALSE(verified("k.jpg", "\xFF\xD8" + std::string(100, 'j')));
    EXPECT_TRUE(verified("l.gif", "GIF89a....;"));
    EXPECT_FALSE(verified("m.gif", "GIF89a...."));
    EXPECT_TRUE(verified("n.txt", "")) << "formats without a marker are taken as they are";
    EXPECT_TRUE(verifier.isVerified(directory.path(), true)) << "packages";
    EXPECT_FALSE(verifier.isVerified(directory / "missing.pdf", false));
}

}  // namespace
}  // namespace vosklin
