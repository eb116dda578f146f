// The audit the crash and fault tests rely on sees each kind of damage: a
// check that cannot fail would make them all pass.
#include "support/StoreAudit.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <functional>

#include "reliability/TmpfsScratch.h"
#include "store/VersionSidecar.h"
#include "support/RestoreFixture.h"

namespace vosklin {
namespace {

using test::RestoreFixture;
using test::t0;
namespace fs = std::filesystem;

struct Damage {
    std::string name;
    std::function<void(RestoreFixture&, const StoredVersion&)> apply;
    std::string problem;  // a part of the one problem expected; empty for none
    std::size_t emptyDirectories = 0;
    std::size_t orphanSlots = 0;
};

void PrintTo(const Damage& damage, std::ostream* out) { *out << damage.name; }

void execute(const std::string& database, const std::string& sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(database.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    sqlite3_close(db);
}

class StoreAuditTest : public ::testing::TestWithParam<Damage> {};

TEST_P(StoreAuditTest, SeesTheDamage) {
    test::TmpfsScratch onTmpfs;
    test::TempDirectory directory;
    RestoreFixture f(directory);
    const auto version = f.capture("a.txt", "alpha", t0);
    f.capture("b.txt", "beta", t0);
    GetParam().apply(f, version);

    auto audit = test::StoreAudit::of(f.store);
    if (GetParam().problem.empty()) {
        EXPECT_TRUE(audit.problems.empty()) << audit.summary();
    } else {
        ASSERT_EQ(audit.problems.size(), 1u) << audit.summary();
        EXPECT_NE(audit.problems[0].find(GetParam().problem), std::string::npos) << audit.problems[0];
    }
    EXPECT_EQ(audit.emptyDirectories.size(), GetParam().emptyDirectories) << audit.summary();
    EXPECT_EQ(audit.orphanSlots.size(), GetParam().orphanSlots);
    EXPECT_EQ(audit.versions, 2);
}

const Damage damages[] = {
    {"None", [](RestoreFixture&, const StoredVersion&) {}, ""},
    {"PayloadRewritten",
     [](RestoreFixture& f, const StoredVersion& v) {
         test::writeFile(f.stack.layout.payloadPath(v.slot, v.payloadName), "alphA");
     },
     "its row says"},
    {"PayloadGone",
     [](RestoreFixture& f, const StoredVersion& v) { fs::remove(f.stack.layout.payloadPath(v.slot, v.payloadName)); },
     "unreadable"},
    {"SidecarGone",
     [](RestoreFixture& f, const StoredVersion& v) {
         fs::remove(f.stack.layout.slotDirectory(v.slot) + "/" + std::string(VersionSidecar::fileName));
     },
     "no sidecar"},
    {"LastDigestMoved",
     [](RestoreFixture& f, const StoredVersion&) {
         execute(f.stack.layout.databasePath(), "UPDATE files SET last_digest = 'elsewhere' WHERE rel_path = 'b.txt'");
     },
     "last_digest elsewhere"},
    {"EmptySlot",
     [](RestoreFixture& f, const StoredVersion& v) {
         fs::create_directories(f.stack.layout.slotDirectory(v.slot) + "-2");
         fs::create_directories(f.stack.layout.versionsDirectory() + "/ff/255");
     },
     "", 2},
    {"OrphanSlot",
     [](RestoreFixture& f, const StoredVersion& v) {
         fs::copy(f.stack.layout.slotDirectory(v.slot), f.stack.layout.slotDirectory(v.slot) + "-9");
     },
     "", 0, 1},
};

INSTANTIATE_TEST_SUITE_P(Damages, StoreAuditTest, ::testing::ValuesIn(damages),
                         [](const ::testing::TestParamInfo<Damage>& parameter) { return parameter.param.name; });

}  // namespace
}  // namespace vosklin
