#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "app/LiveDaemonTest.h"
#include "app/RecordedFolder.h"
#include "support/DaemonProcess.h"

namespace vosklin {
namespace {

using test::writeFile;

class SearchCommandTest : public ::testing::Test, protected test::RecordedFolder {
protected:
    SearchCommandTest() : RecordedFolder("5EA2C400-0000-4000-8000-000000000001") {}

    // A DOCX made the way any zip tool makes one.
    void writeDocx(const std::string& relative, const std::string& paragraph) {
        const std::string staging = place / "docx";
        std::filesystem::create_directories(staging + "/word");
        writeFile(staging + "/word/document.xml",
                  "<?xml version=\"1.0\"?><w:document xmlns:w=\"http://schemas.openxmlformats.org/wordprocessingml/"
                  "2006/main\"><w:body><w:p><w:r><w:t>" + paragraph + "</w:t></w:r></w:p></w:body></w:document>");
        writeFile(staging + "/[Content_Types].xml", "<Types/>");
        ASSERT_EQ(std::system(("cd '" + staging + "' && zip -q -r '" + root + "/" + relative + "' . && rm -r '" +
                               staging + "'").c_str()),
                  0);
    }
    void captureAsWritten(const std::string& relative, double at) {
        auto outcome = stack.service.capture(
            {folder.id, root, root + "/" + relative, false, CaptureSource::watcher, std::nullopt}, at);
        ASSERT_EQ(outcome.kind, CaptureOutcome::Kind::stored);
    }
    std::int64_t pendingTexts() { return jsonOf({"index", "--json"})["pending"].get<std::int64_t>(); }
};

TEST_F(SearchCommandTest, IndexesCapturedDocumentsAndFindsTheirWordsGroupedByFile) {
    const auto draft = capture("notes.txt", "the quarterly budget draft", test::t0);
    const auto final = capture("notes.txt", "the quarterly budget, final", test::t0 + 60);
    capture("letter.txt", std::string("\xFF\xFE" "B\0u\0d\0g\0e\0t\0 \0l\0e\0t\0t\0e\0r\0", 28), test::t0 + 120);
    writeDocx("Report.docx", "Budget report for the Şirket board");
    captureAsWritten("Report.docx", test::t0 + 180);
    capture("prank.txt", "budget \x1b]0;owned\x07\x1b[2J trick", test::t0 + 240);

    auto before = vosklin({"search", "budget"});
    EXPECT_EQ(before.exitStatus, 1) << "nothing is indexed yet";
    EXPECT_NE(before.err.find("5 texts are still waiting"), std::string::npos) << before.err;

    auto run = vosklin({"index", "--now"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_NE(run.out.find("Read 5 versions: 5 with text"), std::string::npos) << run.out;
    EXPECT_EQ(pendingTexts(), 0);

    auto found = vosklin({"search", "budget"});
    ASSERT_EQ(found.exitStatus, 0) << found.err;
    EXPECT_EQ(found.err, "");
    EXPECT_EQ(found.out.find('\x1b'), std::string::npos) << "a document's escape codes never reach the terminal";
    EXPECT_NE(found.out.find(root + "/notes.txt\n  " + std::to_string(final.id) + "  "), std::string::npos)
        << found.out;
    EXPECT_NE(found.out.find("the quarterly [budget] draft"), std::string::npos) << found.out;

    const auto json = jsonOf({"search", "sirket", "--json"});
    ASSERT_EQ(json["groups"].size(), 1u) << json.dump();
    EXPECT_EQ(json["groups"][0]["file"]["path"], root + "/Report.docx");
    EXPECT_NE(json["groups"][0]["hits"][0]["snippet"].get<std::string>().find("\x01Şirket\x02"), std::string::npos);

    const auto notes = jsonOf({"search", "quarterly", "budg", "--json", "--folder", root});
    ASSERT_EQ(notes["groups"].size(), 1u);
    ASSERT_EQ(notes["groups"][0]["hits"].size(), 2u);
    EXPECT_EQ(notes["groups"][0]["hits"][0]["versionID"], final.id) << "newest first";
    EXPECT_EQ(notes["groups"][0]["hits"][1]["versionID"], draft.id);

    auto names = vosklin({"search", "--names", "report"});
    EXPECT_EQ(names.exitStatus, 0);
    EXPECT_NE(names.out.find(root + "/Report.docx"), std::string::npos) << names.out;
    auto shortText = vosklin({"search", "b"});
    EXPECT_EQ(shortText.exitStatus, 2);
    EXPECT_NE(shortText.err.find("at least 2 characters"), std::string::npos) << shortText.err;
    EXPECT_EQ(vosklin({"search", "nowhere-to-be-found"}).exitStatus, 1);
}

TEST_F(SearchCommandTest, TurnedOffNoBatchRunsAndAClearMakesEverythingPendingAgain) {
    capture("a.txt", "alpha words", test::t0);
    ASSERT_EQ(vosklin({"index", "--now"}).exitStatus, 0);
    ASSERT_EQ(vosklin({"settings", "vosklin.contentSearchDisabled", "true"}).exitStatus, 0);
    capture("b.txt", "beta words", test::t0 + 60);

    auto refused = vosklin({"index", "--now"});
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_NE(refused.err.find("content search is turned off"), std::string::npos) << refused.err;
    EXPECT_NE(refused.out.find("Read 0 versions"), std::string::npos) << refused.out;
    const auto status = jsonOf({"index", "--json"});
    EXPECT_EQ(status["indexed"], 1);
    EXPECT_EQ(status["pending"], 1);

    ASSERT_EQ(vosklin({"settings", "vosklin.contentSearchDisabled", "false"}).exitStatus, 0);
    const auto caughtUp = jsonOf({"index", "--now", "--json"});
    EXPECT_EQ(caughtUp["run"]["versions"], 1) << "the run goes on where the index stands";
    const auto cleared = jsonOf({"index", "--clear", "--json"});
    EXPECT_EQ(cleared["indexed"], 0);
    EXPECT_EQ(cleared["pending"], 2);
    EXPECT_EQ(vosklin({"index", "--now", "--clear"}).exitStatus, 2) << "one action at a time";
}

class SearchDaemonTest : public test::LiveDaemonTest {};

TEST_F(SearchDaemonTest, TheDaemonIndexesWhatItCapturesWithoutBeingAsked) {
    test::DaemonProcess daemon(home.path(), {root});
    ASSERT_TRUE(daemon.start());
    writeFile(root + "/minutes.txt", "minutes of the steering committee");
    settle();
    // Each capture batch asks the indexer for a run; wait for it (bounded), not for a guess.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (jsonOf({"index", "--json"})["indexed"] != 1 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto found = jsonOf({"search", "steering", "--json"});
    ASSERT_EQ(found["groups"].size(), 1u) << found.dump();

    succeeds({"settings", "vosklin.contentSearchDisabled", "true"});
    writeFile(root + "/later.txt", "written while search is off");
    settle();
    const auto refused = jsonOf({"index", "--now", "--json"});
    EXPECT_EQ(refused["run"]["versions"], 0) << "no batch ran through the daemon's own indexer";
    EXPECT_EQ(refused["run"]["end"], "content search is turned off");
    EXPECT_EQ(refused["pending"], 1);
    EXPECT_EQ(daemon.stop(), 0);
}

}  // namespace
}  // namespace vosklin
