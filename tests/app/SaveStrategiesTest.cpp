// How other software saves files, against the live daemon: every common way
// of writing a file anew must leave one continuous history on the file's own
// path, and Vosklin's own writes (restore, rewind) must leave it attached.
// Where a real program exists it is used, since its exact sequence of
// creates, renames and deletes is what matters; a missing one is skipped.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>

#include "app/LiveDaemonTest.h"
#include "support/DaemonProcess.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using test::DaemonProcess;
using test::TempDirectory;

bool hasProgram(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

void run(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// One way of saving `text` as the new content of `path` (in `folder`).
struct SaveStrategy {
    std::string name;
    std::string program;  // needed on the machine; empty: none
    std::function<void(const std::string& folder, const std::string& path, const std::string& text)> save;
    std::set<std::string> otherRows = {};  // files the strategy leaves beside the original on purpose
};

void PrintTo(const SaveStrategy& strategy, std::ostream* out) { *out << strategy.name; }

const std::vector<SaveStrategy>& strategies() {
    static const std::vector<SaveStrategy> table = {
        {"TruncateAndWrite", "", [](auto&, auto& path, auto& text) { test::writeFile(path, text); }},
        {"Cp", "cp",
         [](auto&, auto& path, auto& text) {
             TempDirectory elsewhere;
             run("cp " + elsewhere.write("new", text) + " " + path);
         }},
        {"GtkOutputStreamRename", "",
         [](auto& folder, auto& path, auto& text) {
             const std::string temporary = folder + "/.goutputstream-Q3ZK2Y";
             test::writeFile(temporary, text);
             fs::rename(temporary, path);
         }},
        {"MkstempRename", "",
         [](auto& folder, auto& path, auto& text) {
             const std::string temporary = folder + "/tmpq8w2ex1";  // no telltale pattern at all
             test::writeFile(temporary, text);
             fs::rename(temporary, path);
         }},
        {"SedInPlace", "sed",
         [](auto&, auto& path, auto& text) { run("sed -i 's/^.*$/" + text + "/' " + path); }},
        {"Rsync", "rsync",
         [](auto&, auto& path, auto& text) {
             TempDirectory elsewhere;
             run("rsync -I " + elsewhere.write("new", text + "\n") + " " + path);
         }},
        {"BackupTildeThenWriteThenDelete", "",
         [](auto&, auto& path, auto& text) {
             fs::rename(path, path + "~");
             test::writeFile(path, text);
             fs::remove(path + "~");
         }},
        {"BackupBakThenWriteKeepingIt", "",
         [](auto&, auto& path, auto& text) {
             fs::rename(path, path + ".bak");
             test::writeFile(path, text);
         },
         {"doc.txt.bak"}},
        {"IdeOldNameThenWriteThenDelete", "",
         [](auto&, auto& path, auto& text) {
             fs::rename(path, path + "___jb_old___");
             test::writeFile(path, text);
             fs::remove(path + "___jb_old___");
         }},
        {"IdeTmpNameRenamedIn", "",
         [](auto&, auto& path, auto& text) {
             test::writeFile(path + "___jb_tmp___", text);
             fs::rename(path, path + "___jb_old___");
             fs::rename(path + "___jb_tmp___", path);
             fs::remove(path + "___jb_old___");
         }},
        {"UnlinkThenCreate", "",
         [](auto&, auto& path, auto& text) {
             fs::remove(path);
             test::writeFile(path, text);
         }},
        {"Vim", "vim",
         [](auto&, auto& path, auto& text) {
             run("vim -u NONE -N -E -s -c '%d' -c \"call setline(1, '" + text + "')\" -c wq " + path +
                 " </dev/null >/dev/null 2>&1");
         }},
        {"EmacsBatch", "emacs",
         [](auto&, auto& path, auto& text) {
             run("emacs --batch -Q " + path + " --eval '(progn (erase-buffer) (insert \"" + text +
                 "\\n\") (save-buffer))' >/dev/null 2>&1");
         }},
    };
    return table;
}

using LiveHistoryTest = test::LiveDaemonTest;

class SaveStrategiesTest : public LiveHistoryTest, public ::testing::WithParamInterface<SaveStrategy> {};

TEST_P(SaveStrategiesTest, ThreeSavesAreThreeVersionsOfOneFile) {
    const SaveStrategy& strategy = GetParam();
    if (!strategy.program.empty() && !hasProgram(strategy.program))
        GTEST_SKIP() << strategy.program << " is not installed (scripts/install-dependencies.sh installs it)";
    const std::string path = root + "/doc.txt";
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();

    test::writeFile(path, "first\n");
    settle();
    const auto firstRow = historyOf(path)["file"]["id"];
    for (const std::string text : {"second", "third", "fourth"}) {
        strategy.save(root, path, text);
        settle();
    }

    auto history = historyOf(path);
    EXPECT_EQ(history["file"]["id"], firstRow) << "one row all along";
    EXPECT_TRUE(history["file"]["deletedAt"].is_null()) << history.dump();
    const auto& versions = history["versions"];
    ASSERT_EQ(versions.size(), 4u) << versions.dump();
    EXPECT_EQ(contentOf(versions[0]), test::readFile(path)) << "the newest version is the file as it is";
    EXPECT_NE(contentOf(versions[0]).find("fourth"), std::string::npos);
    EXPECT_NE(contentOf(versions[1]).find("third"), std::string::npos);

    std::set<std::string> expectedRows = {"doc.txt"};
    expectedRows.insert(strategy.otherRows.begin(), strategy.otherRows.end());
    EXPECT_EQ(rowPaths(), expectedRows) << "no history under a temporary name";

    auto restored = vosklin({"restore", "--previous", path});
    ASSERT_EQ(restored.exitStatus, 0) << restored.err;
    EXPECT_NE(test::readFile(path).find("third"), std::string::npos);
    settle();
    auto after = historyOf(path);
    EXPECT_EQ(after["file"]["id"], firstRow) << "the restore kept the file attached to its history";
    EXPECT_TRUE(after["file"]["deletedAt"].is_null()) << after.dump();
    EXPECT_GE(after["versions"].size(), 4u) << after.dump();
    EXPECT_EQ(rowPaths(), expectedRows) << "the restore's scratch copy left no row";
    EXPECT_EQ(daemon.stop(), 0) << daemon.standardError();
}

INSTANTIATE_TEST_SUITE_P(Strategies, SaveStrategiesTest, ::testing::ValuesIn(strategies()),
                         [](const auto& strategy) { return strategy.param.name; });

// Restores and rewinds made through the running daemon: its own scratch items
// and swaps are neither tracked nor taken for moves of the files they replace.
TEST_F(LiveHistoryTest, RestoresAndRewindsThroughTheDaemonKeepHistoryAttached) {
    watched.write("a.txt", "one");
    watched.write("stays.txt", "untouched");
    watched.write("Book.rtfd/TXT.rtf", "package, one");
    DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    settle();
    const auto first = historyOf(root + "/a.txt");
    const auto firstBook = historyOf(root + "/Book.rtfd");
    ASSERT_EQ(first["versions"].size(), 1u);
    // The instant by which all three baseline versions were kept.
    std::string instant;
    for (const auto& history : {first, firstBook, historyOf(root + "/stays.txt")})
        instant = std::max(instant, history["versions"][0]["capturedAt"].get<std::string>());

    watched.write("a.txt", "two");
    watched.write("Book.rtfd/TXT.rtf", "package, two");
    watched.write("added.txt", "made after the instant");
    settle();
    ASSERT_EQ(historyOf(root + "/a.txt")["versions"].size(), 2u);

    const auto older = idOf(first["versions"][0]);
    auto inPlace = vosklin({"restore", older, "--in-place"});
    ASSERT_EQ(inPlace.exitStatus, 0) << inPlace.err;
    auto beside = vosklin({"restore", older});
    ASSERT_EQ(beside.exitStatus, 0) << beside.err;
    settle();
    EXPECT_EQ(test::readFile(root + "/a.txt"), "one");
    auto restored = historyOf(root + "/a.txt");
    EXPECT_EQ(restored["file"]["id"], first["file"]["id"]);
    EXPECT_TRUE(restored["file"]["deletedAt"].is_null()) << restored.dump();
    EXPECT_GE(restored["versions"].size(), 2u) << restored.dump();
    EXPECT_EQ(rowPaths(), (std::set<std::string>{"a.txt", "added.txt", "Book.rtfd", "stays.txt"}))
        << "no row under a scratch name";

    auto rewound = vosklin({"rewind", root, instant, "--yes"});
    ASSERT_EQ(rewound.exitStatus, 0) << rewound.err;
    settle();
    EXPECT_EQ(test::readFile(root + "/Book.rtfd/TXT.rtf"), "package, one");
    for (const std::string path : {"a.txt", "Book.rtfd", "stays.txt"}) {
        auto history = historyOf(root + "/" + path);
        EXPECT_TRUE(history["file"]["deletedAt"].is_null()) << path << ": " << history.dump();
    }
    auto book = historyOf(root + "/Book.rtfd");
    EXPECT_EQ(book["file"]["id"], firstBook["file"]["id"]);
    EXPECT_GE(book["versions"].size(), 2u) << book.dump();
    EXPECT_EQ(rowPaths(), (std::set<std::string>{"a.txt", "a (restored).txt (deleted)", "added.txt (deleted)",
                                                 "Book.rtfd", "stays.txt"}))
        << "no row under a scratch name, and only what the rewind removed is deleted";
    EXPECT_EQ(daemon.stop(), 0) << daemon.standardError();
}

}  // namespace
}  // namespace vosklin
