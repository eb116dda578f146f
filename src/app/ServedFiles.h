#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "app/AppContext.h"
#include "platform/RegularFile.h"
#include "store/StoredPayload.h"

namespace vosklin {

class ApiRequest;

// What the window is shown of a file's content: a version's bytes, the file as
// it is now in its watched folder, a PDF's pages. Both kinds of bytes are
// untrusted (anyone could have written them), so only pictures get a picture's
// type, SVG included (the window shows it only through <img>, where its scripts
// never run); everything else, HTML above all, is application/octet-stream.
//
// Failures are ApiError: 404 for a version, file or page that is not there
// (a package, a live file that is not a regular file or is reached through a
// symbolic link), 413 for a PDF too large to render, 415 for one that does not open.
class ServedFiles {
public:
    static constexpr std::int64_t largestPdf = 256ll << 20;

    explicit ServedFiles(AppContext& context) : context_(context) {}

    static std::string_view contentTypeOf(std::string_view name);

    struct Version {
        StoredPayload payload;
        std::string relativePath;
        std::int64_t size;
    };
    // The version's payload, located (so a missing one is known before anything is sent).
    Version version(std::int64_t versionID);

    struct Live {
        OpenedFile file;
        std::string relativePath;
    };
    // The tracked file as it is now: opened beneath its watched folder without following
    // a symbolic link anywhere on the way, and only if it is a regular file.
    Live live(std::int64_t fileID);

    // A PDF's bytes: of a version (verified) or of the live file.
    std::string pdfBytes(std::int64_t id, bool isLive);
    // {"pageCount": n} for "pdfinfo" {"version": id} or {"file": fileID, "live": true}.
    nlohmann::json pdfInfo(const ApiRequest& request);

private:
    AppContext& context_;
};

}  // namespace vosklin
