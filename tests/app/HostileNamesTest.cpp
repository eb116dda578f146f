// Names a person would not type, through every command of the built binary:
// control characters, bytes that are not UTF-8, quotes, a leading dash, the
// longest name there can be and a path deeper than PATH_MAX. Each must come
// back byte for byte from restore and rewind, keep --json valid, and never
// reach the output as a raw control byte (on a terminal least of all). The
// daemon watches a tree deeper than PATH_MAX live.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "app/LiveDaemonTest.h"
#include "app/VosklinHomeTest.h"
#include "platform/DisplayName.h"
#include "platform/PathJson.h"
#include "support/DaemonProcess.h"
#include "support/TerminalSession.h"

namespace vosklin {
namespace {

using nlohmann::json;

struct HostileName {
    const char* label;
    std::string relative;  // below the watched folder
};

void PrintTo(const HostileName& row, std::ostream* out) { *out << row.label; }

// Opens each directory of `relative` from the last, so that no call sees the whole path.
int directoryBeneath(const std::string& root, const std::string& relative, bool create) {
    int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::size_t start = 0;
    for (std::size_t slash; fd >= 0 && (slash = relative.find('/', start)) != std::string::npos; start = slash + 1) {
        const std::string component = relative.substr(start, slash - start);
        if (create) ::mkdirat(fd, component.c_str(), 0755);
        const int next = ::openat(fd, component.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        fd = next;
    }
    return fd;
}

std::string leafOf(const std::string& relative) { return relative.substr(relative.rfind('/') + 1); }

void writeBeneath(const std::string& root, const std::string& relative, const std::string& bytes) {
    const int directory = directoryBeneath(root, relative, true);
    ASSERT_GE(directory, 0);
    const int fd = ::openat(directory, leafOf(relative).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ::close(directory);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    ::close(fd);
}

// The file's bytes, or nothing when it is not there.
std::optional<std::string> readBeneath(const std::string& root, const std::string& relative) {
    const int directory = directoryBeneath(root, relative, false);
    if (directory < 0) return std::nullopt;
    const int fd = ::openat(directory, leafOf(relative).c_str(), O_RDONLY | O_CLOEXEC);
    ::close(directory);
    if (fd < 0) return std::nullopt;
    std::string bytes;
    char buffer[4096];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;) bytes.append(buffer, std::size_t(got));
    ::close(fd);
    return bytes;
}

// Text a person reads: valid UTF-8 with no control byte but line ends (a terminal turns "\n" into "\r\n").
void expectNoRawControlBytes(const std::string& text, const std::string& where) {
    for (unsigned char byte : text)
        if ((byte < 0x20 && byte != '\n' && byte != '\r') || byte == 0x7F) {
            ADD_FAILURE() << where << " holds the raw byte " << int(byte) << ":\n" << DisplayName::of(text);
            return;
        }
    EXPECT_TRUE(isValidUtf8(text)) << where << ":\n" << DisplayName::of(text);
}

class HostileNamesTest : public test::VosklinHomeTest, public ::testing::WithParamInterface<HostileName> {
protected:
    // A command whose every output is read by people: it must succeed and show names safely.
    std::string shown(std::vector<std::string> arguments) {
        const std::string what = arguments.front();
        auto result = vosklin(arguments);
        EXPECT_EQ(result.exitStatus, 0) << what << ": " << DisplayName::of(result.err);
        expectNoRawControlBytes(result.out, what);
        expectNoRawControlBytes(result.err, what + " (stderr)");
        return result.out;
    }
    json scan() {
        shown({"scan", root});
        return jsonOf({"scan", root});
    }
};

TEST_P(HostileNamesTest, EveryCommandKeepsTheBytesAndShowsThemSafely) {
    const std::string relative = GetParam().relative;
    const std::string path = root + "/" + relative;
    const std::string quoted = DisplayName::of(relative);
    auto contains = [](const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    };
    writeBeneath(root, relative, "one\n");
    ASSERT_EQ(vosklin({"folder", "add", root}).exitStatus, 0);
    const std::string scanned = shown({"scan", root});
    EXPECT_TRUE(contains(scanned, " 1 files examined")) << scanned;
    const json history = jsonOf({"history", root});
    ASSERT_FALSE(history["sessions"].empty());
    const std::string moment = history["sessions"][0]["moments"][0]["at"];
    writeBeneath(root, relative, "two\n");
    shown({"scan", root});

    const json versions = jsonOf({"versions", path});
    ASSERT_EQ(versions["versions"].size(), 2u);
    EXPECT_EQ(getPath(versions["file"], "relativePath"), relative);
    const std::string oldest = idOf(versions["versions"][1]);
    EXPECT_EQ(vosklin({"cat", oldest}).out, "one\n");
    EXPECT_TRUE(contains(shown({"versions", path}), DisplayName::of(path)));
    EXPECT_TRUE(contains(shown({"history", root, "--all"}), quoted));
    EXPECT_TRUE(contains(shown({"show", root, "--at", moment}), quoted));
    EXPECT_EQ(getPath(jsonOf({"show", root, "--at", moment})["files"][0], "relativePath"), relative);
    EXPECT_TRUE(contains(shown({"diff", oldest, path}), "+++ " + DisplayName::of(path)));

    EXPECT_TRUE(contains(shown({"restore", oldest, "--in-place"}), DisplayName::of(path)));
    EXPECT_EQ(readBeneath(root, relative), "one\n");

    // Gone, then brought back by a rewind confirmed on a terminal, then gone again by its undo.
    {
        const int directory = directoryBeneath(root, relative, false);
        ASSERT_EQ(::unlinkat(directory, leafOf(relative).c_str(), 0), 0);
        ::close(directory);
    }
    shown({"scan", root});
    test::TerminalSession session({"--home", home.path(), "rewind", root, moment});
    ASSERT_TRUE(session.readUntil("[y/N]")) << DisplayName::of(session.output()) << session.errorOutput();
    EXPECT_TRUE(contains(session.output(), quoted)) << DisplayName::of(session.output());
    expectNoRawControlBytes(session.output(), "the rewind plan on a terminal");
    session.type("y\n");
    EXPECT_EQ(session.finish(), 0) << session.errorOutput();
    expectNoRawControlBytes(session.output(), "the rewind on a terminal");
    EXPECT_EQ(readBeneath(root, relative), "one\n");
    shown({"undo-rewind", root, "--yes"});
    EXPECT_EQ(readBeneath(root, relative), std::nullopt);
}

std::string deepPath() {
    std::string path;
    for (int level = 0; level < 140; ++level) path += std::string(30, 'd') + "/";
    return path + "deep.txt";
}

// The daemon watches a folder deeper than a path can name, and keeps what is saved there.
class DeepTreeLiveTest : public test::LiveDaemonTest {};

TEST_F(DeepTreeLiveTest, AFileSavedDeeperThanPathMaxIsCapturedLive) {
    const std::string relative = deepPath();
    writeBeneath(root, relative, "before the daemon\n");
    test::DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();
    writeBeneath(root, relative, "saved while watched\n");
    settle();
    const auto versions = versionsOf(root + "/" + relative);
    ASSERT_EQ(versions.size(), 2u) << versions.dump();
    EXPECT_EQ(versions[0]["source"], "watcher");
    EXPECT_EQ(daemon.stop(), 0) << daemon.standardError();
}

INSTANTIATE_TEST_SUITE_P(
    Names, HostileNamesTest,
    ::testing::Values(HostileName{"Newline", "line\nbreak.txt"}, HostileName{"Tab", "tab\there.txt"},
                      HostileName{"EscapeSequence", "erase\033[2K\033[1Aline.txt"},
                      HostileName{"QuotesAndBackslash", "it's \"q\" \\ b.txt"},
                      HostileName{"NotUtf8", "latin\xE9\xFF.txt"}, HostileName{"LeadingDash", "-rf.txt"},
                      HostileName{"LongestName", std::string(251, 'n') + ".txt"},
                      HostileName{"ControlsInAFolderName", "dir\x01\x7F/file.txt"},
                      HostileName{"DeeperThanPathMax", deepPath()}),
    [](const auto& entry) { return std::string(entry.param.label); });

}  // namespace
}  // namespace vosklin
