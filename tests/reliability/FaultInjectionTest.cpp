// ENOSPC and EIO at each write of capture, restore and rewind in turn (every
// mutating call of the file system, one fault per run): the operation fails
// cleanly with a typed error or a failed outcome, each file of the folder is
// wholly as before or wholly as a clean run leaves it, nothing a write
// replaced or removed is missing from history, no scratch item stays in the
// folder, and the catalog stays sound, before and after the next start's
// recoveries.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>

#include "catalog/CatalogError.h"
#include "catalog/DatabaseError.h"
#include "platform/FileSystemError.h"
#include "reliability/CaptureBatch.h"
#include "reliability/TmpfsScratch.h"
#include "store/CloneError.h"
#include "store/PayloadDigest.h"
#include "store/VersionSidecar.h"
#include "restore/SafePlacement.h"
#include "support/FolderImage.h"
#include "support/RestoreFixture.h"
#include "support/StoreAudit.h"

namespace vosklin {
namespace {

using test::FolderImage;
using test::RestoreFixture;
using test::t0;
using test::TempDirectory;
namespace fs = std::filesystem;

// The error an operation threw, when it is none of the system's own typed errors.
std::string untypedError(const std::exception_ptr& thrown) {
    try {
        std::rethrow_exception(thrown);
    } catch (const FileSystemError&) {
    } catch (const CloneError&) {
    } catch (const DatabaseError&) {
    } catch (const CatalogError&) {
    } catch (const SidecarError&) {
    } catch (const RestoreError&) {
    } catch (const RewindError&) {
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "a non-standard exception";
    }
    return "";
}

struct Scenario {
    std::string name;
    // Writes the folder and its history; what `run` needs is kept in the fixture's catalog.
    std::function<void(RestoreFixture&)> prepare;
    // The operation under test. Returns how it failed ("" when it did not),
    // or throws what escaped it.
    std::function<std::string(RestoreFixture&)> run;
};

void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> all = {
        {"CaptureBatch", test::prepareBatch,
         [](RestoreFixture& f) {
             auto results = f.stack.service.captureBatch(test::batchRequests(f, CaptureSource::watcher),
                                                         [] { return t0 + 100; });
             std::string failed;
             for (const auto& result : results) {
                 if (!result.error) continue;
                 if (auto untyped = untypedError(result.error); !untyped.empty())
                     throw std::runtime_error("untyped: " + untyped);
                 failed += test::failuresOf({result});
             }
             return failed;
         }},
        {"RestoreCopyBeside",
         [](RestoreFixture& f) {
             f.capture("Report.txt", std::string(40'000, 'o'), t0);
             f.capture("Report.txt", "second draft", t0 + 100);
             f.stack.clock.set(t0 + 1000);
         },
         [](RestoreFixture& f) {
             const auto file = f.stack.catalog.fileAtPath(f.folder.id, "Report.txt");
             auto versions = f.stack.catalog.versionsOfFile(file->id, 2);
             f.service.restore(versions.back().id, RestoreMode::copyBeside);
             return std::string();
         }},
        {"RestoreInPlace",
         [](RestoreFixture& f) {
             f.capture("doc.txt", std::string(100'000, 'o'), t0);
             test::writeFile(f.root + "/doc.txt", std::string(150'000, 'n'));  // never captured
             f.stack.clock.set(t0 + 1000);
         },
         [](RestoreFixture& f) {
             const auto file = f.stack.catalog.fileAtPath(f.folder.id, "doc.txt");
             auto versions = f.stack.catalog.versionsOfFile(file->id, 1);
             f.service.restore(versions.front().id, RestoreMode::replaceInPlace);
             return std::string();
         }},
        {"Rewind",
         [](RestoreFixture& f) {
             f.capture("a.txt", "first a", t0);
             auto keep = f.capture("keep.txt", "kept, deleted later", t0);
             f.capture("b.txt", std::string(50'000, 'b'), t0);
             test::writeFile(f.root + "/a.txt", "second a, longer, never captured");
             test::writeFile(f.root + "/b.txt", std::string(70'000, 'B'));
             fs::remove(f.root + "/keep.txt");
             f.stack.catalog.markDeleted(keep.fileID, t0 + 500);
             fs::create_directories(f.root + "/Later/Deep");
             test::writeFile(f.root + "/Later/Deep/new.txt", "made after, never captured");
             f.stack.clock.set(t0 + 1000);
         },
         [](RestoreFixture& f) {
             auto report = f.rewinds.rewind(f.folder, f.rewinds.plan(f.folder, t0));
             std::string failed;
             for (const auto& path : report.failedPaths) failed += path + "\n";
             return failed;
         }},
    };
    return all;
}

// Each regular file's digest.
std::map<std::string, std::string> digestsOf(const std::string& root, const FolderImage& image) {
    PosixFileSystem fileSystem;
    PayloadDigest digest(fileSystem);
    std::map<std::string, std::string> digests;
    for (const auto& [path, contents] : image)
        if (!path.ends_with("/") && !path.ends_with("@")) digests[path] = digest.fileDigest(root + "/" + path);
    return digests;
}

bool isScratch(const std::string& path) {
    return fs::path(path).filename().string().starts_with(SafePlacement::scratchPrefix);
}

FolderImage withoutScratch(FolderImage image) {
    std::erase_if(image, [](const auto& entry) { return isScratch(entry.first); });
    return image;
}

std::optional<std::string> stateOf(const FolderImage& image, const std::string& path) {
    auto found = image.find(path);
    return found == image.end() ? std::optional<std::string>() : std::optional<std::string>(found->second);
}

// Paths that are neither wholly as before nor wholly as after a clean run.
std::string mixedPaths(const FolderImage& before, const FolderImage& clean, const FolderImage& now) {
    std::set<std::string> paths;
    for (const auto* image : {&before, &clean, &now})
        for (const auto& [path, contents] : *image) paths.insert(path);
    std::string text;
    for (const auto& path : paths) {
        if (isScratch(path)) continue;  // counted apart
        auto current = stateOf(now, path);
        if (current != stateOf(before, path) && current != stateOf(clean, path))
            text += path + (current ? " holds " + std::to_string(current->size()) + " other bytes" : " is gone") + "\n";
    }
    return text;
}

// What was in the folder before, is no longer there, and is in no version.
std::string lostContents(const std::map<std::string, std::string>& beforeDigests, const FolderImage& before,
                         const FolderImage& now, const test::StoreAudit& audit) {
    std::string text;
    for (const auto& [path, digest] : beforeDigests) {
        auto found = now.find(path);
        if (found != now.end() && found->second == before.at(path)) continue;
        if (!audit.digests.count(digest)) text += path + "\n";
    }
    return text;
}

class FaultInjectionTest : public ::testing::TestWithParam<Scenario> {};

TEST_P(FaultInjectionTest, EachWriteFailingInTurnFailsCleanly) {
    test::TmpfsScratch onTmpfs;
    const Scenario& scenario = GetParam();

    // A clean run: how many mutating calls it makes, the first of them that
    // changes a name in the folder (its commit point: a swap, a move into
    // place or a removal; scratch items and the store do not count), and the
    // folder it leaves.
    int writes = 0, commitAt = 0;
    FolderImage clean;
    {
        TempDirectory directory;
        RestoreFixture f(directory);
        scenario.prepare(f);
        using Operation = test::FaultyFileSystem::Operation;
        f.stack.fileSystem.beforeMutation = [&](Operation operation, const std::string& path) {
            ++writes;
            const bool changesName = operation == Operation::renameAt || operation == Operation::removeAt ||
                                     operation == Operation::rename || operation == Operation::exchange ||
                                     operation == Operation::removeFile || operation == Operation::removeDirectory;
            if (!commitAt && changesName && !isScratch(path) && !path.starts_with(f.store)) commitAt = writes;
        };
        ASSERT_EQ(scenario.run(f), "") << "a run without faults succeeds";
        f.stack.fileSystem.beforeMutation = nullptr;
        clean = test::imageOf(f.root);
    }
    ASSERT_GT(writes, 3);

    int injected = 0, failedRuns = 0;
    std::vector<std::string> litter, misreported;
    for (int error : {ENOSPC, EIO}) {
        for (int at = 1; at <= writes; ++at) {
            SCOPED_TRACE(std::string(error == ENOSPC ? "ENOSPC" : "EIO") + " at write " + std::to_string(at) + " of " +
                         std::to_string(writes));
            TempDirectory directory;
            RestoreFixture f(directory);
            scenario.prepare(f);
            const FolderImage before = test::imageOf(f.root);
            const auto beforeDigests = digestsOf(f.root, before);
            auto seen = std::make_shared<int>(0);
            bool thrown = false;
            f.stack.fileSystem.beforeMutation = [&, seen](test::FaultyFileSystem::Operation, const std::string& path) {
                if (++*seen != at) return;
                thrown = true;
                throw FileSystemError(error, "injected", path);
            };
            std::string failed;
            bool threw = false;
            try {
                failed = scenario.run(f);
            } catch (...) {
                threw = true;
                failed = "threw";
                EXPECT_EQ(untypedError(std::current_exception()), "") << "the error is one of the system's own";
            }
            f.stack.fileSystem.beforeMutation = nullptr;
            ASSERT_TRUE(thrown) << "the fault was reached: the run is as long as the clean one";
            ++injected;
            if (!failed.empty()) ++failedRuns;

            const FolderImage after = test::imageOf(f.root);
            const std::string where = (error == ENOSPC ? "ENOSPC at " : "EIO at ") + std::to_string(at) + ": ";
            EXPECT_EQ(mixedPaths(before, clean, after), "") << "each file wholly old or wholly new";
            // A fault before the commit point stops the operation before it changes the folder,
            // unless it is one path's failure, reported: then that path alone stays as it was.
            std::string changedEarly;
            const bool onePathFailed = !threw && !failed.empty() && commitAt;
            if (!commitAt || (at < commitAt && !onePathFailed))
                changedEarly = test::differences(withoutScratch(before), withoutScratch(after));
            std::istringstream failedLines(failed);
            for (std::string path; std::getline(failedLines, path);)
                if ((before.count(path) || clean.count(path)) && stateOf(after, path) != stateOf(before, path))
                    misreported.push_back(where + path);
            std::vector<std::string> scratch = f.scratchItems();
            auto audit = test::StoreAudit::of(f.store);
            EXPECT_TRUE(audit.problems.empty()) << audit.summary();
            if (!audit.emptyDirectories.empty()) litter.push_back(where + audit.summary());
            const std::string lost = lostContents(beforeDigests, before, after, audit);

            // The next start.
            RestoreFixture next(directory);
            next.service.recoverInterrupted();
            next.rewinds.recoverInterrupted();
            for (const auto& item : next.scratchItems()) scratch.push_back(item + " (after the recoveries)");
            std::string findings = lost.empty() ? "" : "lost the former content of " + lost;
            if (!changedEarly.empty())
                findings += "changed the folder after a fault before its commit point (write " +
                            std::to_string(commitAt) + "):\n" + changedEarly;
            for (const auto& item : scratch) findings += "scratch item left: " + item + "\n";
            EXPECT_EQ(findings, "") << "nothing lost, no scratch left, no change before the commit point";
            EXPECT_TRUE(next.journalFiles("restore-").empty() && next.journalFiles("rewind-").empty());
            EXPECT_EQ(test::differences(withoutScratch(after), withoutScratch(test::imageOf(next.root))), "")
                << "the recoveries write no user file";
            auto reopened = test::StoreAudit::of(next.store);
            EXPECT_TRUE(reopened.problems.empty()) << reopened.summary();
        }
    }
    std::cout << "[ faults   ] " << scenario.name << ": " << injected << " faults injected (" << writes
              << " writes x ENOSPC, EIO; commit point at " << commitAt << "), " << failedRuns << " runs failed"
              << "\n";
    EXPECT_GT(failedRuns, 0) << "injected faults are noticed";
    EXPECT_EQ(::testing::PrintToString(misreported), "{}") << "a path reported failed is unchanged";
    // A slot whose removal failed, or a file's folder whose slot could not be made, stays as an
    // empty directory: a copy without a row, left to the store's sweep like any orphan.
    if (!litter.empty()) std::cout << "[ faults   ] " << litter.size() << " runs left an empty store directory\n";
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultInjectionTest, ::testing::ValuesIn(scenarios()),
                         [](const ::testing::TestParamInfo<Scenario>& parameter) { return parameter.param.name; });

}  // namespace
}  // namespace vosklin
