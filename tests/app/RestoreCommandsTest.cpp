// Reads of stored versions through the built binary (cat, diff, restore,
// rewind) when the store no longer holds what the catalog says: a payload
// whose bytes were changed, or a catalog row that leads out of the store.
// Nothing of the bad bytes may reach the user or the folder.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>

#include "app/RecordedFolder.h"
#include "catalog/Database.h"

namespace vosklin {
namespace {

namespace fs = std::filesystem;
using test::t0;

class StoredReadFixture : public test::RecordedFolder {
protected:
    StoredReadFixture() : RecordedFolder("C0000000-0000-4000-8000-000000000001") {
        version = capture("notes.txt", "as it was\n", t0);
        test::writeFile(root + "/notes.txt", "as it is now\n");  // the live file has moved on
    }

    std::string payload(const StoredVersion& stored) const {
        return stack.layout.payloadPath(stored.slot, stored.payloadName);
    }
    std::vector<std::string> scratchItems() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(root))
            if (entry.path().filename().string().starts_with(".vosklin-restore-")) found.push_back(entry.path());
        return found;
    }

    StoredVersion version;
};

// --- A payload changed in the store -------------------------------------------

struct DamagedRead {
    const char* name;
    // Placeholders: ID the version, LIVE the live file, OUT a new path, ROOT the folder, MOMENT the version's moment.
    std::vector<std::string> arguments;
    bool onePathOfMany;  // a rewind goes on past a path it cannot write, and says so per path
};

void PrintTo(const DamagedRead& row, std::ostream* out) { *out << row.name; }

class DamagedPayloadTest : public StoredReadFixture, public ::testing::TestWithParam<DamagedRead> {};

TEST_P(DamagedPayloadTest, IsAnErrorNamingTheVersionAndWritesNothing) {
    const auto& row = GetParam();
    const std::string moment = newestMoment();
    test::writeFile(payload(version), "tampered\n");
    const std::string out = place / "out.txt";
    const std::map<std::string, std::string> values = {
        {"ID", std::to_string(version.id)}, {"LIVE", root + "/notes.txt"}, {"OUT", out}, {"ROOT", root},
        {"MOMENT", moment}};
    std::vector<std::string> arguments;
    for (const auto& argument : row.arguments)
        arguments.push_back(values.count(argument) ? values.at(argument) : argument);

    auto result = vosklin(arguments);
    EXPECT_EQ(result.exitStatus, 1) << result.out;
    EXPECT_NE(result.err.find("The stored copy of version " + std::to_string(version.id) +
                              " is damaged: its content no longer matches its digest"),
              std::string::npos)
        << result.err;
    if (!row.onePathOfMany) {
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << "one line: " << result.err;
    }
    EXPECT_EQ(result.out.find("tampered"), std::string::npos) << result.out;
    EXPECT_FALSE(fs::exists(out));
    EXPECT_EQ(test::readFile(root + "/notes.txt"), "as it is now\n") << "nothing swapped in";
    EXPECT_FALSE(fs::exists(root + "/notes (restored).txt"));
    EXPECT_TRUE(scratchItems().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Reads, DamagedPayloadTest,
    ::testing::Values(DamagedRead{"CatToStandardOutput", {"cat", "ID"}, false},
                      DamagedRead{"CatToAFile", {"cat", "ID", "-o", "OUT"}, false},
                      DamagedRead{"DiffAgainstTheLiveFile", {"diff", "ID", "LIVE"}, false},
                      DamagedRead{"RestoreBeside", {"restore", "ID"}, false},
                      DamagedRead{"RestoreInPlace", {"restore", "ID", "--in-place"}, false},
                      DamagedRead{"Rewind", {"rewind", "ROOT", "MOMENT", "--yes"}, true}),
    [](const auto& entry) { return std::string(entry.param.name); });

class StoredPackageTest : public StoredReadFixture, public ::testing::Test {};

TEST_F(StoredPackageTest, IsCheckedByItsPackageDigest) {
    place.write("Docs/Book.pages/Index/Document.iwa", "document body");
    place.write("Docs/Book.pages/Data/image.jpg", "jpeg");
    const auto book = capture("Book.pages", "", t0, true);
    const std::string out = place / "Book-copy.pages";
    test::writeFile(payload(book) + "/Data/image.jpg", "jpeg, changed in the store");
    auto damaged = vosklin({"cat", std::to_string(book.id), "-o", out});
    EXPECT_EQ(damaged.exitStatus, 1);
    EXPECT_NE(damaged.err.find("version " + std::to_string(book.id) + " is damaged"), std::string::npos)
        << damaged.err;
    EXPECT_FALSE(fs::exists(out)) << "no half-checked copy is left";
}

class StoredFileTest : public StoredReadFixture, public ::testing::Test {};

// A copy that cannot be made is said of the destination, not of the store.
TEST_F(StoredFileTest, ACopyIntoAMissingFolderNamesTheDestination) {
    const std::string out = place / "missing-folder/out.txt";
    const auto result = vosklin({"cat", std::to_string(version.id), "-o", out});
    test::expectRefused(result, "Could not write " + out + ": No such file or directory");
    EXPECT_EQ(result.err.find(home / "store"), std::string::npos) << result.err;
}

// --- A catalog row that leads out of the store ----------------------------------

struct OutsideRow {
    const char* name;
    // Makes the version's slot or name lead out of the store, to a copy of the right
    // bytes: what is refused is the way there, not the content.
    std::function<void(Database& catalog, const StoredVersion& version, const std::string& store,
                       const std::string& outside)>
        redirect;
};

void PrintTo(const OutsideRow& row, std::ostream* out) { *out << row.name; }

class PayloadOutsideStoreTest : public StoredReadFixture, public ::testing::TestWithParam<OutsideRow> {};

TEST_P(PayloadOutsideStoreTest, IsRefusedByEveryReadNamingTheVersionAndItsRecordedPlace) {
    const std::string outside = place / "outside";
    place.write("outside/notes.txt", "as it was\n");
    {
        Database catalog(stack.layout.databasePath());
        GetParam().redirect(catalog, version, home / "store", outside);
    }
    const std::string id = std::to_string(version.id);
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"cat", id}, std::vector<std::string>{"diff", id, root + "/notes.txt"},
          std::vector<std::string>{"restore", id}, std::vector<std::string>{"rewind", root, newestMoment(), "--yes"}}) {
        auto result = vosklin(arguments);
        EXPECT_EQ(result.exitStatus, 1) << arguments[0] << ": " << result.out;
        EXPECT_NE(result.err.find("version " + id + " is recorded outside the store (as "), std::string::npos)
            << arguments[0] << ": " << result.err;
        EXPECT_EQ(result.err.find("will not write there"), std::string::npos) << "not the destination's fault";
        if (arguments[0] != "rewind") {  // whose plan is printed first, "put back as it was"
            EXPECT_EQ(result.out.find("as it was"), std::string::npos) << arguments[0] << ": " << result.out;
        }
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(root), fs::directory_iterator()), 1) << "nothing restored beside";
    EXPECT_EQ(test::readFile(root + "/notes.txt"), "as it is now\n") << "nothing rewound";
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PayloadOutsideStoreTest,
    ::testing::Values(
        OutsideRow{"SlotClimbingOut",
                   [](Database& catalog, const StoredVersion& version, const std::string& store,
                      const std::string& outside) {
                       // From the store root up to the place that holds both.
                       const std::string slot =
                           "versions/../../" + fs::relative(outside, fs::path(store).parent_path()).string();
                       catalog.run("UPDATE versions SET slot = ? WHERE id = ?", {slot, version.id});
                   }},
        OutsideRow{"AbsolutePayloadName",
                   [](Database& catalog, const StoredVersion& version, const std::string&, const std::string& outside) {
                       catalog.run("UPDATE versions SET payload_name = ? WHERE id = ?",
                                   {outside + "/notes.txt", version.id});
                   }},
        OutsideRow{"SlotReplacedByALink",
                   [](Database&, const StoredVersion& version, const std::string& store, const std::string& outside) {
                       const std::string slot = store + "/" + version.slot;
                       fs::remove_all(slot);
                       fs::create_directory_symlink(outside, slot);
                   }}),
    [](const auto& entry) { return std::string(entry.param.name); });

}  // namespace
}  // namespace vosklin
