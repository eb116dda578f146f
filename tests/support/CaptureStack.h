#pragma once

#include <string>

#include "capture/CaptureService.h"
#include "support/FaultyFileSystem.h"
#include "support/ManualClock.h"
#include "support/RecordingLogger.h"

namespace vosklin::test {

// A real capture service over a store in `storeRoot`, on the fault-injecting
// file system, with a manual clock and a recording logger: what a capture or
// crawl test needs, built in dependency order.
struct CaptureStack {
    explicit CaptureStack(const std::string& storeRoot) : layout{storeRoot, fileSystem} {}

    FaultyFileSystem fileSystem;
    ManualClock clock;
    RecordingLogger logger;
    VersionStoreLayout layout;
    VersionCatalog catalog{[this] {
        layout.prepareDirectories();
        return layout.databasePath();
    }()};
    PayloadCloner cloner{fileSystem, clock, logger};
    PayloadDigest digest{fileSystem};
    PayloadWriter writer{layout, cloner, digest};
    PayloadVerifier verifier{fileSystem};
    CaptureService service{catalog, layout, writer, digest, verifier, fileSystem};
};

}  // namespace vosklin::test
