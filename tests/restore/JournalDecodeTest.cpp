// Journals are read back after a crash, when their bytes may be anything: a
// journal that is not one this program wrote is refused with JournalError, so
// recovery sets it aside rather than acting on it or failing to start.
#include <gtest/gtest.h>

#include <cctype>
#include <functional>

#include "restore/JournalError.h"
#include "restore/RestoreJournal.h"
#include "restore/RewindJournal.h"
#include "support/EditedText.h"

namespace vosklin {
namespace {

const std::string goodRestore = R"({"version": 1, "id": "J1", "startedAt": "2026-03-01T14:32:05Z",
  "mode": "replaceInPlace", "payloadPath": "/store/s/a.txt", "destinationPath": "/p/a.txt",
  "scratchPath": "/p/.vosklin-restore-1", "preRestoreVersionID": 41})";
const std::string goodRewind = R"({"version": 1, "id": "R1", "startedAt": "2026-03-02T09:00:01Z",
  "folderID": "F", "folderRoot": "/p", "target": "2026-02-28T18:15:00Z", "beforeRewindAt": "2026-03-02T09:00:00Z",
  "entries": [{"action": "revert", "relativePath": "a.txt", "destinationPath": "/p/a.txt"}]})";

void decodeRestore(const std::string& text) { RestoreJournal::decode(text); }
void decodeRewind(const std::string& text) { RewindJournal::decode(text); }

// One change to a good journal's text (`from` empty: `to` is the whole text).
struct RefusedJournal {
    const char* why;
    std::function<void(const std::string&)> decode;
    const std::string* good;
    std::string from;
    std::string to;
};
void PrintTo(const RefusedJournal& refused, std::ostream* out) { *out << refused.why; }

class JournalRefusalTest : public ::testing::TestWithParam<RefusedJournal> {};

TEST(JournalDecodeTest, TheGoodTextsBelowAreRead) {
    EXPECT_EQ(RestoreJournal::decode(goodRestore).preRestoreVersionID, 41);
    EXPECT_EQ(RewindJournal::decode(goodRewind).entries.size(), 1u);
}

TEST_P(JournalRefusalTest, Refuses) {
    const auto& refused = GetParam();
    const auto text = test::editedText(*refused.good, refused.from, refused.to);
    ASSERT_TRUE(text) << refused.from;
    EXPECT_THROW(refused.decode(*text), JournalError) << *text;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, JournalRefusalTest,
    ::testing::Values(
        RefusedJournal{"restore not JSON", decodeRestore, &goodRestore, "", "{ not json"},
        RefusedJournal{"restore not an object", decodeRestore, &goodRestore, "", "[1, 2]"},
        RefusedJournal{"restore id missing", decodeRestore, &goodRestore, "\"id\": \"J1\",", ""},
        RefusedJournal{"restore id a number", decodeRestore, &goodRestore, "\"J1\"", "7"},
        RefusedJournal{"restore id a path", decodeRestore, &goodRestore, "\"J1\"", "\"../../elsewhere\""},
        RefusedJournal{"restore id empty", decodeRestore, &goodRestore, "\"J1\"", "\"\""},
        RefusedJournal{"restore format beyond any integer", decodeRestore, &goodRestore, "\"version\": 1",
                       "\"version\": 1e300"},
        RefusedJournal{"restore version id beyond any integer", decodeRestore, &goodRestore, "41", "-1e300"},
        RefusedJournal{"restore mode unknown", decodeRestore, &goodRestore, "\"replaceInPlace\"", "\"sideways\""},
        RefusedJournal{"restore instant", decodeRestore, &goodRestore, "2026-03-01T14:32:05Z", "teatime"},
        RefusedJournal{"restore path bytes not hex", decodeRestore, &goodRestore, "\"payloadPath\"",
                       "\"payloadPathBytes\": \"zz\", \"payloadPath\""},
        RefusedJournal{"rewind not JSON", decodeRewind, &goodRewind, "", ""},
        RefusedJournal{"rewind id a path", decodeRewind, &goodRewind, "\"R1\"", "\"a/b\""},
        RefusedJournal{"rewind format beyond any integer", decodeRewind, &goodRewind, "\"version\": 1",
                       "\"version\": 3e9"},
        RefusedJournal{"rewind entries not a list of objects", decodeRewind, &goodRewind, "[{", "[7, {"},
        RefusedJournal{"rewind entry path bytes of odd length", decodeRewind, &goodRewind, "\"relativePath\"",
                       "\"relativePathBytes\": \"616\", \"relativePath\""},
        RefusedJournal{"rewind target instant", decodeRewind, &goodRewind, "2026-02-28T18:15:00Z", "2026-02-28"}),
    [](const auto& param) {
        std::string name = param.param.why;
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    });

}  // namespace
}  // namespace vosklin
