#pragma once

#include "catalog/StoredVersion.h"
#include "catalog/TrackedFile.h"

namespace vosklin {

// A file as it was at an instant: its row, with the path it had then, and the version current then.
struct FileStateAt {
    TrackedFile file;
    StoredVersion version;
};

}  // namespace vosklin
