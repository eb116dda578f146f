#include "app/AppContext.h"

#include "catalog/CatalogError.h"
#include "catalog/CatalogMigrations.h"
#include "platform/LinuxMachineConditions.h"
#include "platform/PathNames.h"
#include "store/StoreSlots.h"

namespace vosklin {

AppContext::AppContext(const std::optional<std::string>& homeOption, Logger& logger)
    : homeOption_(homeOption),
      logger_(logger),
      locator_(StoreLocator::fromEnvironment(homeOption)),
      settings_(joinPath(Settings::configDirectory(homeOption), "settings.json"), fileSystem_, logger),
      folders_(joinPath(Settings::configDirectory(homeOption), "folders.json"), fileSystem_),
      layout_(locator_.storeRoot(), fileSystem_) {}

std::string AppContext::homeDirectory() const { return processEnvironment("HOME").value_or(""); }

bool AppContext::storeExists() {
    return fileSystem_.status(layout_.databasePath()).has_value() || StoreSlots(layout_, fileSystem_).any();
}

std::optional<std::string> AppContext::catalogDamage() {
    const auto state = Database::inspectFile(layout_.databasePath());
    switch (state) {
        case Database::FileState::plausible: return std::nullopt;
        case Database::FileState::absent:
        case Database::FileState::empty:
            if (!StoreSlots(layout_, fileSystem_).any()) return std::nullopt;  // a new store
            return Database::describe(state) + " while the store holds versions";
        case Database::FileState::notADatabase:
        case Database::FileState::truncated: return Database::describe(state);
    }
    return std::nullopt;
}

VersionCatalog& AppContext::catalog() {
    if (!catalog_) {
        if (auto damage = catalogDamage()) throw CatalogError::damaged(*damage);
        layout_.prepareDirectories();
        try {
            catalog_ = std::make_unique<VersionCatalog>(layout_.databasePath());
        } catch (const DatabaseError& error) {
            if (Database::isDamageCode(error.code())) throw CatalogError::damaged(error.message());
            throw;
        }
    }
    return *catalog_;
}

VersionCatalog& AppContext::readCatalog() {
    if (catalog_) return *catalog_;
    if (!readCatalog_) {
        if (auto damage = catalogDamage()) throw CatalogError::damaged(*damage);
        if (!fileSystem_.status(layout_.databasePath())) return catalog();
        try {
            auto opened = std::make_unique<VersionCatalog>(layout_.databasePath(), Database::Access::readOnly);
            if (opened->schemaVersion() < CatalogMigrations::currentVersion) return catalog();
            readCatalog_ = std::move(opened);
        } catch (const DatabaseError& error) {
            if (Database::isDamageCode(error.code())) throw CatalogError::damaged(error.message());
            throw;
        }
    }
    return *readCatalog_;
}

ExcludeRules AppContext::excludeRules() {
    return ExcludeRules::fromSettings(settings_);
}

PackageKinds AppContext::packageKinds() {
    return PackageKinds::fromSettings(settings_);
}

CaptureService& AppContext::captureService() {
    if (!capture_) {
        cloner_ = std::make_unique<PayloadCloner>(fileSystem_, clock_, logger_);
        digest_ = std::make_unique<PayloadDigest>(fileSystem_);
        writer_ = std::make_unique<PayloadWriter>(layout_, *cloner_, *digest_);
        verifier_ = std::make_unique<PayloadVerifier>(fileSystem_);
        capture_ = std::make_unique<CaptureService>(catalog(), layout_, *writer_, *digest_, *verifier_, fileSystem_);
    }
    return *capture_;
}

PayloadCloner& AppContext::cloner() {
    captureService();
    return *cloner_;
}

RestoreService& AppContext::restoreService() {
    if (!restore_)
        restore_ = std::make_unique<RestoreService>(RestoreService::Collaborators{
            catalog(), layout_, captureService(), folders_, fileSystem_, cloner(), clock_, logger_});
    return *restore_;
}

RewindService& AppContext::rewindService() {
    if (!rewind_)
        rewind_ = std::make_unique<RewindService>(
            RestoreService::Collaborators{catalog(), layout_, captureService(), folders_, fileSystem_, cloner(), clock_,
                                          logger_},
            excludeRules(), packageKinds());
    return *rewind_;
}

PruneAllPass& AppContext::pruneAllPass() {
    if (!prune_) prune_ = std::make_unique<PruneAllPass>(catalog(), layout_, folders_, settings_, fileSystem_, logger_);
    return *prune_;
}

MachineConditions& AppContext::machine() {
    if (!machine_) machine_ = std::make_unique<LinuxMachineConditions>();
    return *machine_;
}

ContentIndexer& AppContext::contentIndexer() {
    if (!indexer_) {
        extractor_ = std::make_unique<TextExtractor>(fileSystem_);
        indexer_ = std::make_unique<ContentIndexer>(
            ContentIndexer::Collaborators{catalog(), layout_, fileSystem_, *extractor_, settings_, machine(), clock_, logger_});
    }
    return *indexer_;
}

ReconciliationCrawler AppContext::makeCrawler() {
    walker_ = std::make_unique<FolderWalker>(fileSystem_, excludeRules(), packageKinds());
    return ReconciliationCrawler(catalog(), captureService(), *walker_, fileSystem_, clock_, logger_);
}

}  // namespace vosklin
