#pragma once

#include <optional>
#include <string>

#include "catalog/CaptureSource.h"

namespace vosklin {

// One unit to capture, and why.
struct CaptureRequest {
    std::string folderID;
    std::string folderRoot;
    std::string unit;  // the file, or the package directory
    bool isPackage = false;
    CaptureSource source = CaptureSource::watcher;
    std::optional<std::string> batchID;  // shared by the captures of one operation (a snapshot, a rewind)

    bool operator==(const CaptureRequest&) const = default;
};

}  // namespace vosklin
