#include "restore/RewindService.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/FileSystemError.h"
#include "store/Sha256.h"
#include "support/FolderImage.h"
#include "support/RestoreFixture.h"
#include "support/Thrown.h"

namespace vosklin {
namespace {

using test::readFile;
using test::RestoreFixture;
using test::t0;
using test::TempDirectory;
namespace fs = std::filesystem;
using Action = RewindPlan::Step::Action;

class RewindServiceTest : public ::testing::Test {
protected:
    // Captures the folder as it is (a crawl-like pass over the given files) at `at`.
    void captureAll(const std::vector<std::string>& paths, double at) {
        for (const auto& path : paths)
            f.stack.service.capture({f.folder.id, f.root, f.root + "/" + path, false, CaptureSource::crawl,
                                     std::nullopt},
                                    at);
    }

    TempDirectory directory;
    RestoreFixture f{directory};
};

TEST(RewindPlanTest, StepsCompareTheStateThenWithTheFolderNow) {
    auto state = [](std::int64_t id, const std::string& path, const std::string& digest,
                    std::optional<std::string> lastDigest) {
        FileStateAt s;
        s.file.id = id;
        s.file.relativePath = path;
        s.file.lastDigest = std::move(lastDigest);
        s.version.id = id * 10;
        s.version.digest = digest;
        s.version.logicalBytes = 5;
        return s;
    };
    const std::vector<FileStateAt> then = {state(1, "same.txt", "d1", "d1"), state(2, "changed.txt", "d2", "x"),
                                           state(3, "gone.txt", "d3", "d3"), state(4, "trusted.txt", "d4", "d4"),
                                           state(5, "unknown.txt", "d5", std::nullopt)};
    const std::vector<RewindPlan::LiveFile> now = {{"same.txt", 5, std::string("d1"), std::nullopt, false},
                                                   {"changed.txt", 9, std::string("other"), std::nullopt, false},
                                                   {"trusted.txt", 5, std::nullopt, std::nullopt, false},
                                                   {"unknown.txt", 5, std::nullopt, std::nullopt, false},
                                                   {"added.txt", 7, std::string("d9"), std::nullopt, false}};
    auto plan = RewindPlan::make(then, now, t0);
    ASSERT_EQ(plan.steps.size(), 4u);
    EXPECT_EQ(plan.steps[0], (RewindPlan::Step{"added.txt", Action::removeAdded, std::nullopt, std::nullopt, false, 7,
                                               std::nullopt}));
    EXPECT_EQ(plan.steps[1], (RewindPlan::Step{"changed.txt", Action::revert, 20, 2, false, 9, 5}));
    EXPECT_EQ(plan.steps[2], (RewindPlan::Step{"gone.txt", Action::restoreDeleted, 30, 3, false, std::nullopt, 5}));
    EXPECT_EQ(plan.steps[3].relativePath, "unknown.txt") << "no digest at all: reverted";
    EXPECT_TRUE(RewindPlan::make({state(1, "a", "d", "d")}, {{"a", 1, std::string("d"), std::nullopt, false}}, t0)
                    .steps.empty());
}

TEST_F(RewindServiceTest, NothingToDoWritesNothing) {
    test::writeFile(f.root + "/a.txt", "a");
    captureAll({"a.txt"}, t0);
    auto plan = f.rewinds.plan(f.folder, t0);
    EXPECT_TRUE(plan.steps.empty());
    auto error = test::thrown<RewindError>([&] { f.rewinds.rewind(f.folder, plan); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), RewindError::Kind::nothingToDo);
    EXPECT_EQ(error->textKey(), "rewind.error.nothingToDo");
    EXPECT_TRUE(f.journalFiles("rewind").empty());
    EXPECT_TRUE(f.stack.catalog.marks(f.folder.id).empty());
}

TEST_F(RewindServiceTest, ARenamedFileComesBackUnderItsOldNameAndTheNewOneGoes) {
    test::writeFile(f.root + "/draft.txt", "words");
    captureAll({"draft.txt"}, t0);
    const auto row = *f.stack.catalog.fileAtPath(f.folder.id, "draft.txt");
    fs::rename(f.root + "/draft.txt", f.root + "/final.txt");
    f.stack.catalog.recordRename(row.id, "final.txt", std::string("txt"), t0 + 100);
    f.stack.clock.set(t0 + 200);
    auto plan = f.rewinds.plan(f.folder, t0);
    ASSERT_EQ(plan.steps.size(), 2u);
    EXPECT_EQ(plan.steps[0].relativePath, "draft.txt");
    EXPECT_EQ(plan.steps[0].action, Action::restoreDeleted);
    EXPECT_EQ(plan.steps[1].relativePath, "final.txt");
    EXPECT_EQ(plan.steps[1].action, Action::removeAdded);
    auto report = f.rewinds.rewind(f.folder, plan);
    EXPECT_EQ(report.restoredCount, 1);
    EXPECT_EQ(report.removedCount, 1);
    EXPECT_EQ(readFile(f.root + "/draft.txt"), "words");
    EXPECT_FALSE(fs::exists(f.root + "/final.txt"));
}

TEST_F(RewindServiceTest, UndoRestoresTheExactFormerContentsAndEmptiedFoldersAreSwept) {
    test::writeFile(f.root + "/a.txt", "first a");
    test::writeFile(f.root + "/keep.txt", "unchanged");
    captureAll({"a.txt", "keep.txt"}, t0);

    // Then: a edited, keep deleted, a new file in a new subfolder.
    test::writeFile(f.root + "/a.txt", "second a, longer");
    fs::remove(f.root + "/keep.txt");
    fs::create_directories(f.root + "/Later/Deep");
    test::writeFile(f.root + "/Later/Deep/new.txt", "made after");
    const auto before = test::imageOf(f.root);

    f.stack.clock.set(t0 + 1000);
    auto report = f.rewinds.rewind(f.folder, f.rewinds.plan(f.folder, t0));
    EXPECT_EQ(report.revertedCount, 1);
    EXPECT_EQ(report.restoredCount, 1);
    EXPECT_EQ(report.removedCount, 1);
    EXPECT_TRUE(report.failedPaths.empty());
    EXPECT_EQ(readFile(f.root + "/a.txt"), "first a");
    EXPECT_EQ(readFile(f.root + "/keep.txt"), "unchanged");
    EXPECT_FALSE(fs::exists(f.root + "/Later")) << "emptied folders are swept, up to the watched folder";
    EXPECT_TRUE(f.stack.logger.contains("Rewind swept 2 emptied folders"));
    EXPECT_TRUE(f.scratchItems().empty());
    EXPECT_TRUE(f.journalFiles("rewind-").empty());
    EXPECT_EQ(f.journalFiles("rewound-").size(), 1u);

    // The marks: beforeRewind on the state before, rewind on the state written.
    auto marks = f.stack.catalog.marks(f.folder.id);
    ASSERT_EQ(marks.size(), 2u);
    EXPECT_EQ(marks[1].kind, MomentMark::Kind::beforeRewind);
    EXPECT_EQ(marks[1].at, report.beforeRewindAt);
    EXPECT_EQ(marks[1].targetAt, t0);
    EXPECT_EQ(marks[0].kind, MomentMark::Kind::rewind);
    EXPECT_EQ(marks[0].targetAt, t0);

    // Undo: rewind to the beforeRewind moment.
    f.stack.clock.set(t0 + 2000);
    f.rewinds.rewind(f.folder, f.rewinds.plan(f.folder, report.beforeRewindAt));
    EXPECT_EQ(test::imageOf(f.root), before) << "every file back, byte for byte";
}

using Op = test::FaultyFileSystem::Operation;

// What a path holds, for telling whether a rewind left it alone: a file's
// contents, a link's target, or a folder's whole tree.
std::string standing(const std::string& path) {
    if (fs::is_symlink(path)) return "link to " + fs::read_symlink(path).string();
    if (!fs::is_directory(path)) return fs::exists(path) ? "file " + readFile(path) : "nothing";
    std::string tree = "folder";
    for (const auto& [item, contents] : test::imageOf(path)) tree += " " + item + "=" + contents;
    return tree;
}

// When what a rewind would overwrite or remove cannot be kept first (the
// store is full, the file cannot be read), the rewind stops before writing.
TEST(RewindProtectionTest, AFailedProtectingCaptureStopsTheRewindBeforeItsFirstWrite) {
    struct Case {
        const char* what;
        Op operation;
        int error;
        std::string pathPart;  // "" for the store's versions directory
    };
    const std::vector<Case> cases = {
        {"the store is full", Op::create, ENOSPC, ""},
        {"a file added since cannot be read", Op::clone, EIO, "added.txt"},
        {"a file edited since cannot be read", Op::clone, EIO, "edited.txt"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TempDirectory directory;
        RestoreFixture f(directory);
        f.capture("edited.txt", "as it was", t0);
        test::writeFile(f.root + "/edited.txt", "edited since, never captured");
        test::writeFile(f.root + "/added.txt", "added since, never captured");
        f.stack.clock.set(t0 + 1000);
        const auto plan = f.rewinds.plan(f.folder, t0);
        ASSERT_EQ(plan.steps.size(), 2u);
        const auto before = test::imageOf(f.root);
        f.stack.fileSystem.fail(c.operation, c.error, 1,
                                c.pathPart.empty() ? f.stack.layout.versionsDirectory() : c.pathPart);
        auto error = test::thrown<RewindError>([&] { f.rewinds.rewind(f.folder, plan); });
        ASSERT_TRUE(error) << "the rewind went on without keeping what it replaces";
        EXPECT_EQ(error->kind(), RewindError::Kind::captureFailed);
        EXPECT_EQ(error->textKey(), "rewind.error.captureFailed");
        EXPECT_EQ(test::imageOf(f.root), before) << "nothing written";
        EXPECT_TRUE(f.journalFiles("rewind").empty());
        EXPECT_TRUE(f.stack.catalog.marks(f.folder.id).empty());
    }
}

// Whatever stands where a rewind writes is kept first, even where the plan saw
// nothing (a name excluded or transient since its capture). What cannot be
// kept as a file (a folder of the same name, a link) fails that path alone and
// is left exactly as it is; the other paths go on.
TEST(RewindProtectionTest, WhatStandsInTheWayIsKeptOrLeftAlone) {
    struct Case {
        const char* what;
        std::string path;
        std::function<void(RestoreFixture&)> putInTheWay;  // after the capture at t0
        bool kept;                                         // else: the path fails and is left as it is
        std::function<void(RestoreFixture&)> afterPlanning = nullptr;
    };
    auto file = [](const std::string& relative) {
        return [relative](RestoreFixture& f) { test::writeFile(f.root + "/" + relative, "written now"); };
    };
    auto folderWithHistory = [](const std::string& relative) {
        return [relative](RestoreFixture& f) {
            fs::remove(f.root + "/" + relative);
            fs::create_directories(f.root + "/" + relative + "/.git/refs");
            test::writeFile(f.root + "/" + relative + "/.git/HEAD", "ref: refs/heads/main");
        };
    };
    const std::vector<Case> cases = {
        {"a name excluded since", "debug.log", file("debug.log"), true},
        {"a transient name", "draft.tmp", file("draft.tmp"), true},
        {"a folder of the same name", "build", folderWithHistory("build"), false},
        {"a symbolic link", "shortcut",
         [](RestoreFixture& f) {
             fs::remove(f.root + "/shortcut");
             fs::create_symlink(f.root + "/../elsewhere", f.root + "/shortcut");
         },
         false},
        {"a folder put where a file is to be removed", "late.txt",
         [](RestoreFixture& f) { test::writeFile(f.root + "/late.txt", "never captured"); }, false,
         folderWithHistory("late.txt")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TempDirectory directory;
        RestoreFixture f(directory);
        RewindService rewinds{f.collaborators, ExcludeRules::standard({"*.log"}), PackageKinds()};
        if (c.path != "late.txt") f.capture(c.path, "as it was", t0);
        f.capture("other.txt", "other as it was", t0);
        fs::remove(f.root + "/other.txt");
        c.putInTheWay(f);
        f.stack.clock.set(t0 + 1000);
        const auto plan = rewinds.plan(f.folder, t0);
        ASSERT_EQ(plan.steps.size(), 2u);
        if (c.afterPlanning) c.afterPlanning(f);
        const std::string there = standing(f.root + "/" + c.path);

        auto report = rewinds.rewind(f.folder, plan);
        EXPECT_EQ(readFile(f.root + "/other.txt"), "other as it was") << "the other paths go on";
        EXPECT_TRUE(f.scratchItems().empty());
        if (c.kept) {
            EXPECT_TRUE(report.failedPaths.empty());
            EXPECT_EQ(readFile(f.root + "/" + c.path), "as it was");
            EXPECT_EQ(f.keptContents(c.path, CaptureSource::preRewind), std::vector<std::string>{"written now"});
        } else {
            EXPECT_EQ(report.failedPaths, std::vector<std::string>{c.path});
            const auto messages = f.stack.logger.messages();
            EXPECT_TRUE(std::any_of(messages.begin(), messages.end(), [](const std::string& message) {
                return message.starts_with("Rewind could not write one path: ");
            }));
            EXPECT_EQ(standing(f.root + "/" + c.path), there) << "left exactly as it was";
        }
    }
}

// A write that fails part-way leaves no scratch item in the folder: the
// rewind removes them, and one it cannot remove stays named in the journal
// for the next start's recovery to remove.
TEST(RewindScratchTest, NoScratchItemOutlivesAFailedWrite) {
    struct Case {
        const char* what;
        Op operation;
        int error;
        std::string pathPart;
        int times;      // -1: every time while the rewind runs
        bool pathFails;  // a path is reported not written
    };
    const std::vector<Case> cases = {
        {"a swap fails", Op::renameAt, EIO, "b.txt", 1, true},
        {"a copy into the folder fails", Op::clone, ENOSPC, ".vosklin-restore-", 1, true},
        {"the sync before the swaps fails", Op::syncFileSystem, EIO, "/Docs", 1, true},
        // Swapped in is written: only the old content waits, under its scratch name, for recovery.
        {"what was swapped out cannot be removed", Op::removeAt, EIO, ".vosklin-restore-", -1, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TempDirectory directory;
        RestoreFixture f(directory);
        for (const std::string name : {"a.txt", "b.txt"}) {
            f.capture(name, "then " + name, t0);
            test::writeFile(f.root + "/" + name, "now " + name);
        }
        fs::create_directories(f.root + "/sub");
        f.capture("sub/c.txt", "then c", t0);
        fs::remove(f.root + "/sub/c.txt");
        f.stack.clock.set(t0 + 1000);
        const auto plan = f.rewinds.plan(f.folder, t0);
        ASSERT_EQ(plan.steps.size(), 3u);
        int remaining = c.times;
        bool rewinding = true;
        f.stack.fileSystem.beforeMutation = [&](Op operation, const std::string& path) {
            if (!rewinding || operation != c.operation || path.find(c.pathPart) == std::string::npos || !remaining)
                return;
            if (remaining > 0) --remaining;
            throw FileSystemError(c.error, "injected", path);
        };
        auto report = f.rewinds.rewind(f.folder, plan);
        EXPECT_EQ(report.failedPaths.empty(), !c.pathFails);
        if (c.times > 0) {
            EXPECT_TRUE(f.scratchItems().empty()) << (f.scratchItems().empty() ? "" : f.scratchItems()[0]);
            EXPECT_TRUE(f.journalFiles("rewind-").empty());
        }
        rewinding = false;
        f.rewinds.recoverInterrupted();
        EXPECT_TRUE(f.scratchItems().empty()) << "after the next start's recovery";
        EXPECT_TRUE(f.journalFiles("rewind-").empty());
        for (const std::string name : {"a.txt", "b.txt"}) {
            const std::string contents = readFile(f.root + "/" + name);
            EXPECT_TRUE(contents == "then " + name || contents == "now " + name) << contents;
        }
    }
}

// Recovery removes every scratch item its journal names, made or not, file or
// package, and also when the rewind had finished (its manifest written).
TEST(RewindScratchTest, RecoveryRemovesEveryScratchItemTheJournalNames) {
    for (const bool finished : {false, true}) {
        SCOPED_TRACE(finished ? "finished" : "interrupted");
        TempDirectory directory;
        RestoreFixture f(directory);
        fs::create_directories(f.root + "/sub");
        test::writeFile(f.root + "/a.txt", "a");
        test::writeFile(f.root + "/.vosklin-restore-A", "half a copy");
        fs::create_directories(f.root + "/sub/.vosklin-restore-B/Contents");
        test::writeFile(f.root + "/sub/.vosklin-restore-B/Contents/data", "a package's copy");
        RewindJournal journal;
        journal.id = "R1";
        journal.folderID = f.folder.id;
        journal.folderRoot = f.root;
        journal.entries = {{"revert", "a.txt", f.root + "/a.txt", f.root + "/.vosklin-restore-A", Sha256::of("a")},
                           {"restoreDeleted", "sub/Pkg.app", f.root + "/sub/Pkg.app", f.root + "/sub/.vosklin-restore-B",
                            Sha256::of("b")},
                           {"restoreDeleted", "c.txt", f.root + "/c.txt", f.root + "/.vosklin-restore-C", Sha256::of("c")},
                           {"removeAdded", "d.txt", f.root + "/d.txt", std::nullopt, std::nullopt}};
        journal.write(f.stack.fileSystem, f.stack.layout.journalDirectory());
        if (finished) {
            RewindManifest manifest;
            manifest.id = "R1";
            manifest.write(f.stack.fileSystem, f.stack.layout.journalDirectory());
        }

        auto found = f.rewinds.recoverInterrupted();
        EXPECT_TRUE(f.scratchItems().empty());
        EXPECT_TRUE(f.journalFiles("rewind-").empty());
        ASSERT_EQ(found.size(), finished ? 0u : 1u);
        if (!finished) {
            EXPECT_EQ(found[0].sweptScratch, 2);
            EXPECT_EQ(found[0].completedEntries, 2) << "a.txt in place, d.txt absent";
        }
    }
}

// At the next start, recovery counts what it finds written: a file to be
// reverted is there before its swap as after it, so only its content tells.
TEST(RewindRecoveryTest, CountsOnlyTheWritesFoundInPlace) {
    struct Case {
        const char* what;
        std::set<std::string> done;  // the entries whose write or removal happened
        std::int64_t completed;
    };
    const std::vector<Case> cases = {
        {"planned and started, nothing swapped", {}, 0},
        {"killed half-way", {"r1.txt", "d1.txt"}, 2},
        {"killed after the last write, before the manifest", {"r1.txt", "r2.txt", "r3.txt", "d1.txt", "x1.txt"}, 5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TempDirectory directory;
        RestoreFixture f(directory);
        RewindJournal journal;
        journal.id = "R2";
        journal.folderID = f.folder.id;
        journal.folderRoot = f.root;
        auto path = [&](const std::string& name) { return f.root + "/" + name; };
        for (const std::string name : {"r1.txt", "r2.txt", "r3.txt"}) {
            test::writeFile(path(name), (c.done.count(name) ? "then " : "now ") + name);
            journal.entries.push_back({"revert", name, path(name), std::nullopt, Sha256::of("then " + name)});
        }
        if (c.done.count("d1.txt")) test::writeFile(path("d1.txt"), "then d1.txt");
        journal.entries.push_back({"restoreDeleted", "d1.txt", path("d1.txt"), std::nullopt, Sha256::of("then d1.txt")});
        if (!c.done.count("x1.txt")) test::writeFile(path("x1.txt"), "added since");
        journal.entries.push_back({"removeAdded", "x1.txt", path("x1.txt"), std::nullopt, std::nullopt});
        // Written by a build that kept no digests: counted as unchecked, never as done.
        test::writeFile(path("old.txt"), "then old.txt");
        journal.entries.push_back({"revert", "old.txt", path("old.txt"), std::nullopt, std::nullopt});
        journal.write(f.stack.fileSystem, f.stack.layout.journalDirectory());

        const auto found = f.rewinds.recoverInterrupted();
        ASSERT_EQ(found.size(), 1u);
        EXPECT_EQ(found[0].completedEntries, c.completed);
        EXPECT_EQ(found[0].uncheckedEntries, 1);
        EXPECT_EQ(found[0].journal.entries.size(), 6u);
    }
}

// A rewind bringing back five deleted files, killed at each of its writes in
// turn: at the next start the recovery counts the files in place (each one
// whole or absent), no scratch item is left, and the folder's former state is
// still on the timeline.
TEST(RewindCrashTest, AnInterruptedRewindIsReportedAndItsFormerStateKept) {
    std::set<std::int64_t> completedCounts;
    int completedAt = 0;
    for (int killAt = 1; killAt < 400 && !completedAt; ++killAt) {
        TempDirectory directory;
        {
            RestoreFixture setup(directory);
            for (int i = 1; i <= 5; ++i) {
                const std::string name = "f" + std::to_string(i) + ".txt";
                auto version = setup.capture(name, std::string(20'000, char('0' + i)), t0);
                fs::remove(setup.root + "/" + name);
                setup.stack.catalog.markDeleted(version.fileID, t0 + 500);
            }
        }
        if (test::runKilledAtWrite(directory, killAt, [&](RestoreFixture& f) {
                f.stack.clock.set(t0 + 1000);
                f.rewinds.rewind(f.folder, f.rewinds.plan(f.folder, t0));
            }))
            completedAt = killAt;
        RestoreFixture next(directory);
        next.service.recoverInterrupted();
        auto interrupted = next.rewinds.recoverInterrupted();
        EXPECT_TRUE(next.scratchItems().empty()) << "killed at write " << killAt;
        std::int64_t present = 0;
        for (int i = 1; i <= 5; ++i) {
            const std::string path = next.root + "/f" + std::to_string(i) + ".txt";
            if (!fs::exists(path)) continue;
            ++present;
            EXPECT_EQ(readFile(path), std::string(20'000, char('0' + i))) << "killed at write " << killAt;
        }
        if (!interrupted.empty()) {
            ASSERT_EQ(interrupted.size(), 1u);
            EXPECT_EQ(interrupted[0].journal.entries.size(), 5u);
            EXPECT_EQ(interrupted[0].completedEntries, present) << "killed at write " << killAt;
            completedCounts.insert(interrupted[0].completedEntries);
            // The former state (all five deleted) is on the timeline, with its mark.
            const double beforeAt = interrupted[0].journal.beforeRewindAt;
            EXPECT_TRUE(next.stack.catalog.stateAt(next.folder.id, beforeAt).empty()) << "killed at write " << killAt;
            bool marked = false;
            for (const auto& mark : next.stack.catalog.marks(next.folder.id))
                marked |= mark.kind == MomentMark::Kind::beforeRewind && mark.at == beforeAt;
            EXPECT_TRUE(marked) << "killed at write " << killAt;
        }
    }
    EXPECT_GT(completedAt, 10) << "a rewind of five files takes many writes; each was interrupted in turn";
    EXPECT_TRUE(completedCounts.count(2)) << "a crash after two of five writes was seen and reported as such";
}

}  // namespace
}  // namespace vosklin
