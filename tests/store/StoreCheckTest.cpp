// StoreChecker and CatalogRebuilder over a real store: real slots, payloads,
// sidecars and a real SQLite catalog, written the way a capture writes them.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "catalog/VersionCatalog.h"
#include "platform/PathNames.h"
#include "platform/PosixFileSystem.h"
#include "store/CatalogRebuilder.h"
#include "store/PayloadDigest.h"
#include "store/StoreChecker.h"
#include "store/StoreSlots.h"
#include "store/VersionSidecar.h"
#include "support/ManualClock.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::TempDirectory;
namespace fs = std::filesystem;

const std::string folderID = "F0000000-0000-0000-0000-000000000001";

// Public: the damage table below reaches into it.
class StoreFixture : public ::testing::Test {
public:
    StoreFixture() {
        layout.prepareDirectories();
        fs::create_directories(root);
        catalog = std::make_unique<VersionCatalog>(layout.databasePath());
    }

    // A version of `relative` holding `contents`, as a capture records it. The
    // payload sits under `payloadName` (the source's own name unless given).
    StoredVersion capture(const std::string& relative, const std::string& contents, double at,
                          std::optional<std::string> payloadName = std::nullopt) {
        auto file = catalog->upsertFile(folderID, relative, std::nullopt, false, std::nullopt);
        auto slot = layout.makeSlot(file.id, at);
        const std::string name = payloadName.value_or(lastComponent(relative));
        test::writeFile(joinPath(slot.directory, name), contents);
        NewVersion version;
        version.fileID = file.id;
        version.capturedAt = at;
        version.digest = digest.fileDigest(joinPath(slot.directory, name));
        version.logicalBytes = std::int64_t(contents.size());
        version.slot = slot.relativePath;
        version.payloadName = name;
        version.method = CloneMethod::copied;
        version.source = CaptureSource::watcher;
        VersionSidecar sidecar;
        sidecar.originalPath = joinPath(root, relative);
        sidecar.capturedAt = at;
        sidecar.digest = version.digest;
        sidecar.logicalBytes = version.logicalBytes;
        sidecar.method = version.method;
        sidecar.verified = version.isVerified;
        sidecar.payloadName = name;
        sidecar.write(fileSystem, slot.directory);
        return catalog->recordVersion(version);
    }

    StoreChecker::Report check(bool readData = false) {
        StoreChecker checker(*catalog, layout, fileSystem, digest, {{folderID, root}});
        return checker.check({std::nullopt, readData});
    }

    std::string slotPath(const StoredVersion& version) { return layout.slotDirectory(version.slot); }
    std::string sidecarPath(const StoredVersion& version) { return joinPath(slotPath(version), "vosklin-version.json"); }
    void editSidecar(const StoredVersion& version, const std::function<void(VersionSidecar&)>& edit) {
        auto sidecar = VersionSidecar::read(fileSystem, slotPath(version));
        edit(sidecar);
        test::writeFile(sidecarPath(version), sidecar.encode());
    }

    TempDirectory directory;
    PosixFileSystem fileSystem;
    PayloadDigest digest{fileSystem};
    test::ManualClock clock;
    VersionStoreLayout layout{directory / "store", fileSystem};
    const std::string root = directory / "Documents";
    std::unique_ptr<VersionCatalog> catalog;
};

// --- Checking -------------------------------------------------------------------------------

struct Damage {
    const char* name;
    std::function<void(StoreFixture&, const StoredVersion&)> apply;
    bool readData;
    std::optional<StoreProblem::Kind> expected;  // nothing: the check must pass
    std::string field;
};
void PrintTo(const Damage& damage, std::ostream* out) { *out << damage.name; }

class StoreCheckerDamageTest : public StoreFixture, public ::testing::WithParamInterface<Damage> {};

TEST_P(StoreCheckerDamageTest, FindsExactlyTheDamage) {
    const Damage& damage = GetParam();
    capture("notes/plan.txt", "first draft", 1'740'839'525.4);
    const auto victim = capture("notes/plan.txt", "second draft", 1'740'839'600.75);
    capture("other.txt", "unrelated", 1'740'839'700);
    damage.apply(*this, victim);

    const auto report = check(damage.readData);
    EXPECT_EQ(report.versionsChecked, 3);
    EXPECT_TRUE(report.notes.empty());
    if (!damage.expected) {
        EXPECT_TRUE(report.problems.empty()) << report.problems.front().detail;
        return;
    }
    ASSERT_EQ(report.problems.size(), 1u) << (report.problems.empty() ? "" : report.problems.back().detail);
    const auto& problem = report.problems.front();
    EXPECT_EQ(problem.kind, *damage.expected) << problem.detail;
    EXPECT_EQ(problem.versionID, victim.id);
    EXPECT_EQ(problem.slot, victim.slot);
    EXPECT_EQ(problem.field, damage.field);
    EXPECT_EQ(problem.detail.find('\n'), std::string::npos) << "one line";
}

using Kind = StoreProblem::Kind;
using F = StoreFixture;
using V = StoredVersion;

INSTANTIATE_TEST_SUITE_P(
    Cases, StoreCheckerDamageTest,
    ::testing::Values(
        Damage{"intact", [](F&, const V&) {}, true, std::nullopt, ""},
        Damage{"slot gone", [](F& f, const V& v) { fs::remove_all(f.slotPath(v)); }, false, Kind::slotMissing, ""},
        Damage{"payload gone", [](F& f, const V& v) { fs::remove(f.slotPath(v) + "/plan.txt"); }, false,
               Kind::payloadMissing, ""},
        Damage{"payload cut short", [](F& f, const V& v) { test::writeFile(f.slotPath(v) + "/plan.txt", "second"); },
               false, Kind::payloadSizeWrong, ""},
        // Same size, other bytes: only reading the data can tell.
        Damage{"bit rot unread", [](F& f, const V& v) { test::writeFile(f.slotPath(v) + "/plan.txt", "second DRAFT"); },
               false, std::nullopt, ""},
        Damage{"bit rot read", [](F& f, const V& v) { test::writeFile(f.slotPath(v) + "/plan.txt", "second DRAFT"); },
               true, Kind::payloadDigestWrong, ""},
        Damage{"sidecar gone", [](F& f, const V& v) { fs::remove(f.sidecarPath(v)); }, false, Kind::sidecarMissing,
               ""},
        Damage{"sidecar garbage", [](F& f, const V& v) { test::writeFile(f.sidecarPath(v), "{\"version\": "); },
               false, Kind::sidecarUnreadable, ""},
        Damage{"digest", [](F& f, const V& v) { f.editSidecar(v, [](auto& s) { s.digest = std::string(64, '0'); }); },
               false, Kind::sidecarDisagrees, "digest"},
        Damage{"size", [](F& f, const V& v) { f.editSidecar(v, [](auto& s) { s.logicalBytes = 3; }); }, false,
               Kind::sidecarDisagrees, "logicalBytes"},
        Damage{"method", [](F& f, const V& v) { f.editSidecar(v, [](auto& s) { s.method = CloneMethod::cloned; }); },
               false, Kind::sidecarDisagrees, "method"},
        Damage{"verified", [](F& f, const V& v) { f.editSidecar(v, [](auto& s) { s.verified = false; }); }, false,
               Kind::sidecarDisagrees, "verified"},
        Damage{"payload name", [](F& f, const V& v) { f.editSidecar(v, [](auto& s) { s.payloadName = "x.txt"; }); },
               false, Kind::sidecarDisagrees, "payloadName"},
        // The sidecar keeps whole seconds: the row's fraction is no disagreement, a second is.
        Damage{"same second", [](F& f, const V& v) { f.editSidecar(v, [](auto& s) { s.capturedAt = 1'740'839'600; }); },
               false, std::nullopt, ""},
        Damage{"other second", [](F& f, const V& v) { f.editSidecar(v, [](auto& s) { s.capturedAt = 1'740'839'601; }); },
               false, Kind::sidecarDisagrees, "capturedAt"},
        Damage{"original path",
               [](F& f, const V& v) { f.editSidecar(v, [&](auto& s) { s.originalPath = f.root + "/plan.txt"; }); },
               false, Kind::sidecarDisagrees, "originalPath"}),
    [](const auto& param) {
        std::string name = param.param.name;
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    });

TEST_F(StoreFixture, PayloadIsFoundByItsRecordedNameAndOrphanSlotsAreNotes) {
    // A source named like the sidecar cannot sit beside it under its own name.
    capture("cfg/vosklin-version.json", "{\"mine\": true}", 1'740'839'525, "vosklin-version (payload).json");
    const auto orphan = layout.makeSlot(77, 1'740'839'900);
    test::writeFile(joinPath(orphan.directory, "left.txt"), "left behind by a crash");

    auto report = check(true);
    EXPECT_TRUE(report.problems.empty()) << report.problems.front().detail;
    ASSERT_EQ(report.notes.size(), 1u);
    EXPECT_EQ(report.notes.front().kind, Kind::orphanSlot);
    EXPECT_EQ(report.notes.front().slot, orphan.relativePath);

    // Checking one folder looks at its versions only, and not for orphans.
    StoreChecker checker(*catalog, layout, fileSystem, digest, {{folderID, root}});
    EXPECT_EQ(checker.check({std::string("another folder"), false}).versionsChecked, 0);
    EXPECT_TRUE(checker.check({folderID, false}).notes.empty());
}

TEST_F(StoreFixture, PackagePayloadsAreSizedAndHashedAsPackages) {
    auto file = catalog->upsertFile(folderID, "Trip.bundle", std::nullopt, true, std::string("bundle"));
    auto slot = layout.makeSlot(file.id, 1'740'839'525);
    const std::string payload = joinPath(slot.directory, "Trip.bundle");
    directory.write(payload.substr(directory.path().size() + 1) + "/a.txt", "alpha");
    directory.write(payload.substr(directory.path().size() + 1) + "/sub/b.txt", "beta");
    NewVersion version;
    version.fileID = file.id;
    version.capturedAt = 1'740'839'525;
    version.digest = digest.packageDigest(payload);
    version.logicalBytes = 9;
    version.slot = slot.relativePath;
    version.payloadName = "Trip.bundle";
    VersionSidecar sidecar{1, joinPath(root, "Trip.bundle"), version.capturedAt, version.digest, 9,
                           CloneMethod::unknown, true, "Trip.bundle"};
    sidecar.write(fileSystem, slot.directory);
    catalog->recordVersion(version);
    EXPECT_TRUE(check(true).problems.empty());

    test::writeFile(payload + "/sub/b.txt", "BETA");
    auto report = check(true);
    ASSERT_EQ(report.problems.size(), 1u);
    EXPECT_EQ(report.problems.front().kind, Kind::payloadDigestWrong);
    test::writeFile(payload + "/sub/b.txt", "be");
    report = check(true);
    ASSERT_EQ(report.problems.size(), 2u);
    EXPECT_EQ(report.problems.front().kind, Kind::payloadSizeWrong) << "the sum of the package's files";
}

// --- Rebuilding -----------------------------------------------------------------------------

class CatalogRebuilderTest : public StoreFixture {
public:
    CatalogRebuilder::Report rebuildAfterLosingTheCatalog() {
        catalog.reset();
        test::writeFile(layout.databasePath(), "");  // the lost catalog: an empty file
        CatalogRebuilder rebuilder(layout, fileSystem, clock, {{folderID, root}});
        auto report = rebuilder.rebuild();
        catalog = std::make_unique<VersionCatalog>(layout.databasePath());
        return report;
    }
};

TEST_F(CatalogRebuilderTest, BringsBackFilesAndVersionsAndTheResultChecksClean) {
    clock.set(1'750'000'000);
    directory.write("Documents/notes/plan.txt", "second draft");  // still there; other.txt is gone
    const auto first = capture("notes/plan.txt", "first draft", 1'740'839'525);
    const auto second = capture("notes/plan.txt", "second draft", 1'740'839'600);
    const auto gone = capture("other.txt", "unrelated", 1'740'839'550);
    // Renamed between captures: each version keeps the path it was taken under.
    const auto renamedBefore = capture("old name.txt", "r1", 1'740'839'400);
    catalog->recordRename(renamedBefore.fileID, "new name.txt", std::string("txt"), 1'740'839'450);
    const auto renamedAfter = capture("new name.txt", "r2", 1'740'839'500);
    const auto odd = capture("cfg/vosklin-version.json", "{}", 1'740'839'560, "vosklin-version (payload).json");
    const auto latin1 = capture("Entw\xfcrfe/caf\xe9.txt", "bytes", 1'740'839'570);

    const auto report = rebuildAfterLosingTheCatalog();
    EXPECT_EQ(report.slots, 7);
    EXPECT_EQ(report.versions, 7);
    EXPECT_EQ(report.files, 5);
    EXPECT_TRUE(report.skipped.empty());
    ASSERT_TRUE(report.setAsideAs.has_value());
    EXPECT_EQ(*report.setAsideAs, "index.sqlite.damaged-20250615-150640");
    EXPECT_TRUE(fs::exists(joinPath(layout.root(), *report.setAsideAs))) << "the damaged catalog is kept";

    auto plan = catalog->fileAtPath(folderID, "notes/plan.txt");
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->id, first.fileID) << "file ids are the ones the slots are filed under";
    EXPECT_EQ(plan->lastDigest, second.digest);
    EXPECT_FALSE(plan->deletedAt);
    EXPECT_EQ(plan->inode, fileSystem.linkStatus(root + "/notes/plan.txt")->inode);
    auto versions = catalog->versionsOfFile(plan->id, 10);
    ASSERT_EQ(versions.size(), 2u);
    EXPECT_EQ(versions[0].digest, second.digest);
    EXPECT_EQ(versions[0].slot, second.slot);
    EXPECT_EQ(versions[0].capturedAt, second.capturedAt);
    EXPECT_EQ(versions[0].source, CaptureSource::crawl);
    EXPECT_EQ(versions[1].digest, first.digest);
    EXPECT_LT(versions[1].id, versions[0].id);

    auto other = catalog->fileAtPath(folderID, "other.txt");
    ASSERT_TRUE(other);
    EXPECT_EQ(other->deletedAt, 1'750'000'000) << "gone now: marked deleted at the rebuild";

    auto renamed = catalog->fileAtPath(folderID, "new name.txt");
    ASSERT_TRUE(renamed);
    EXPECT_EQ(renamed->id, renamedAfter.fileID);
    EXPECT_FALSE(catalog->fileAtPath(folderID, "old name.txt"));
    std::vector<std::string> paths;
    for (const auto& placed : catalog->placedVersions(folderID))
        if (placed.version.fileID == renamed->id) paths.push_back(placed.relativePath.value_or("?"));
    EXPECT_EQ(paths, (std::vector<std::string>{"old name.txt", "new name.txt"}));

    auto config = catalog->fileAtPath(folderID, "cfg/vosklin-version.json");
    ASSERT_TRUE(config);
    EXPECT_EQ(catalog->newestVersion(config->id)->payloadName, "vosklin-version (payload).json");
    EXPECT_EQ(catalog->newestVersion(config->id)->slot, odd.slot);
    auto bytes = catalog->fileAtPath(folderID, "Entw\xfcrfe/caf\xe9.txt");
    ASSERT_TRUE(bytes) << "a name that is not UTF-8 comes back byte for byte";
    EXPECT_EQ(catalog->newestVersion(bytes->id)->slot, latin1.slot);
    EXPECT_EQ(gone.fileID, other->id);

    auto checked = check(true);
    EXPECT_TRUE(checked.problems.empty()) << checked.problems.front().detail;
    EXPECT_TRUE(checked.notes.empty());
    // New files get ids above every slot's.
    auto fresh = catalog->upsertFile(folderID, "brand new.txt", std::nullopt, false, std::nullopt);
    EXPECT_GT(fresh.id, latin1.fileID);
}

TEST_F(CatalogRebuilderTest, SlotsThatCannotBeTakenAreReportedAndLeftAlone) {
    const auto kept = capture("kept.txt", "kept", 1'740'839'500);
    const auto noSidecar = capture("a.txt", "a", 1'740'839'510);
    fs::remove(sidecarPath(noSidecar));
    const auto noPayload = capture("b.txt", "b", 1'740'839'520);
    fs::remove(slotPath(noPayload) + "/b.txt");
    const auto elsewhere = capture("c.txt", "c", 1'740'839'530);
    editSidecar(elsewhere, [](auto& s) { s.originalPath = "/srv/unwatched/c.txt"; });
    const auto evil = capture("d.txt", "d", 1'740'839'540);
    std::string text = test::readFile(sidecarPath(evil));
    text.replace(text.find("\"d.txt\""), 7, "\"../../../../index.sqlite\"");
    test::writeFile(sidecarPath(evil), text);

    const auto report = rebuildAfterLosingTheCatalog();
    EXPECT_EQ(report.versions, 1);
    ASSERT_EQ(report.skipped.size(), 4u);
    std::map<std::string, std::string> reasons;
    for (const auto& skipped : report.skipped) reasons[skipped.slot] = skipped.reason;
    EXPECT_NE(reasons[noSidecar.slot].find("no sidecar"), std::string::npos);
    EXPECT_NE(reasons[noPayload.slot].find("payload b.txt is missing"), std::string::npos);
    EXPECT_NE(reasons[elsewhere.slot].find("/srv/unwatched/c.txt, which is in no watched folder"), std::string::npos);
    EXPECT_NE(reasons[evil.slot].find("payloadName"), std::string::npos) << reasons[evil.slot];
    for (const auto& slot : {noSidecar.slot, noPayload.slot, elsewhere.slot, evil.slot})
        EXPECT_TRUE(fs::exists(layout.slotDirectory(slot))) << slot << " left where it is";
    EXPECT_EQ(catalog->allSlots(), std::vector<std::string>{kept.slot});
}

TEST_F(CatalogRebuilderTest, SetsAsideTheLogWithTheCatalogAndNeverOverwritesAnEarlierOne) {
    capture("a.txt", "a", 1'740'839'500);
    catalog.reset();
    clock.set(1'750'000'000);
    test::writeFile(layout.databasePath(), "damaged");
    test::writeFile(layout.databasePath() + "-wal", "its log");
    test::writeFile(joinPath(layout.root(), "index.sqlite.damaged-20250615-150640"), "an earlier one");
    CatalogRebuilder rebuilder(layout, fileSystem, clock, {{folderID, root}});
    const auto report = rebuilder.rebuild();
    ASSERT_TRUE(report.setAsideAs);
    EXPECT_EQ(*report.setAsideAs, "index.sqlite.damaged-20250615-150640-2");
    const std::string base = joinPath(layout.root(), *report.setAsideAs);
    EXPECT_EQ(test::readFile(base), "damaged");
    EXPECT_EQ(test::readFile(base + "-wal"), "its log") << "the log goes with its catalog";
    EXPECT_EQ(test::readFile(joinPath(layout.root(), "index.sqlite.damaged-20250615-150640")), "an earlier one");
    EXPECT_FALSE(fs::exists(layout.databasePath() + "-wal")) << "no stale log beside the new catalog";
    EXPECT_EQ(VersionCatalog(layout.databasePath()).totals().versions, 1);
}

TEST(StoreSlotsTest, FileIDComesFromTheSlotPath) {
    EXPECT_EQ(StoreSlots::fileID("versions/2a/42/20250301-143205"), 42);
    EXPECT_EQ(StoreSlots::fileID("versions/ff/255/20250301-143205-2"), 255);
    EXPECT_EQ(StoreSlots::fileID("versions/2a/x42/20250301-143205"), std::nullopt);
    EXPECT_EQ(StoreSlots::fileID("versions/2a/20250301-143205"), std::nullopt);
    EXPECT_EQ(StoreSlots::fileID("versions/00/0/20250301-143205"), std::nullopt);
}

}  // namespace
}  // namespace vosklin
