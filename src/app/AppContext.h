#pragma once

#include <memory>
#include <optional>
#include <string>

#include "bridge/FolderList.h"
#include "capture/CaptureService.h"
#include "capture/FolderWalker.h"
#include "capture/ReconciliationCrawler.h"
#include "catalog/VersionCatalog.h"
#include "platform/Clock.h"
#include "platform/Logger.h"
#include "platform/MachineConditions.h"
#include "platform/PosixFileSystem.h"
#include "platform/Settings.h"
#include "restore/RestoreService.h"
#include "restore/RewindService.h"
#include "retention/PruneAllPass.h"
#include "search/ContentIndexer.h"
#include "search/TextExtractor.h"
#include "store/PayloadCloner.h"
#include "store/PayloadDigest.h"
#include "store/PayloadWriter.h"
#include "store/StoreLocator.h"
#include "store/VersionStoreLayout.h"

namespace vosklin {

// The composition root: where Vosklin's data lives and the services over it,
// built on first use so that a command pays only for what it touches.
// One per process (the command line, or the daemon); not thread-safe itself,
// though the services it hands out are.
class AppContext {
public:
    AppContext(const std::optional<std::string>& homeOption, Logger& logger);

    FileSystem& fileSystem() { return fileSystem_; }
    Clock& clock() { return clock_; }
    Logger& logger() { return logger_; }
    const StoreLocator& locator() const { return locator_; }
    Settings& settings() { return settings_; }
    FolderList& folders() { return folders_; }
    VersionStoreLayout& layout() { return layout_; }
    std::string homeDirectory() const;
    // The --home option this process was started with, when it was.
    const std::optional<std::string>& homeOption() const { return homeOption_; }

    // Whether there is a store to read: a catalog file, or slots without one
    // (whose catalog was lost; opening it then says so). Read-only commands do not create a store.
    bool storeExists();
    // Why the catalog cannot be opened as it stands, or nothing when it can be
    // tried: an empty or missing file while the store holds versions (SQLite
    // would take it for a new, empty catalog and the history would sit unused),
    // a file that is not a database, or one cut short. Looks without opening it.
    std::optional<std::string> catalogDamage();
    // Opens (creating and migrating as needed) the catalog. A damaged catalog is
    // never replaced: CatalogError::damaged, whose message says how to rebuild it.
    VersionCatalog& catalog();
    // The catalog for a command that only reads: opened read-only, so that it works on
    // a full disk (and writes nothing there). An older catalog is migrated first, through
    // catalog(); a missing one is made by catalog() too. Its writes fail.
    VersionCatalog& readCatalog();
    CaptureService& captureService();
    PayloadCloner& cloner();
    RestoreService& restoreService();
    RewindService& rewindService();
    // One per process, so that a second pass asked for while one runs does nothing.
    PruneAllPass& pruneAllPass();
    // One per process; the daemon starts its thread, a command runs it on its own.
    ContentIndexer& contentIndexer();
    MachineConditions& machine();
    // A crawler with the current exclusion and package settings.
    ReconciliationCrawler makeCrawler();
    ExcludeRules excludeRules();
    PackageKinds packageKinds();

private:
    std::optional<std::string> homeOption_;
    PosixFileSystem fileSystem_;
    SystemClock clock_;
    Logger& logger_;
    StoreLocator locator_;
    Settings settings_;
    FolderList folders_;
    VersionStoreLayout layout_;
    std::unique_ptr<VersionCatalog> catalog_;
    std::unique_ptr<VersionCatalog> readCatalog_;
    std::unique_ptr<PayloadCloner> cloner_;
    std::unique_ptr<PayloadDigest> digest_;
    std::unique_ptr<PayloadWriter> writer_;
    std::unique_ptr<PayloadVerifier> verifier_;
    std::unique_ptr<CaptureService> capture_;
    std::unique_ptr<FolderWalker> walker_;
    std::unique_ptr<RestoreService> restore_;
    std::unique_ptr<RewindService> rewind_;
    std::unique_ptr<PruneAllPass> prune_;
    std::unique_ptr<MachineConditions> machine_;
    std::unique_ptr<TextExtractor> extractor_;
    std::unique_ptr<ContentIndexer> indexer_;  // last: its thread uses the members above
};

}  // namespace vosklin
