#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/RestoreFixture.h"

namespace vosklin::test {

// A batch worth capturing, shared by the crash and fault tests: plain files
// (one large, one in a new subfolder), a package, and one whose content already
// is its newest version (a dedupe).
struct BatchUnit {
    std::string path;
    bool isPackage;
};

inline const std::vector<BatchUnit>& batchUnits() {
    static const std::vector<BatchUnit> units = {
        {"a.txt", false}, {"big.bin", false}, {"Notes.rtfd", true}, {"same.txt", false}, {"sub/new.md", false}};
    return units;
}

// Writes the batch's files into the fixture's folder, with the history that
// makes "a.txt" an edit and "same.txt" a dedupe.
inline void prepareBatch(RestoreFixture& f) {
    namespace fs = std::filesystem;
    f.capture("a.txt", "alpha", t0);
    f.capture("same.txt", "kept already, unchanged since", t0);
    writeFile(f.root + "/a.txt", "alpha, edited since");
    std::string big(600'000, '\0');
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = char((i * 7919) >> 5);
    writeFile(f.root + "/big.bin", big);
    fs::create_directories(f.root + "/Notes.rtfd/Pictures");
    writeFile(f.root + "/Notes.rtfd/TXT.rtf", "{\\rtf1 notes}");
    writeFile(f.root + "/Notes.rtfd/Pictures/one.png", std::string(30'000, 'p'));
    fs::create_directories(f.root + "/sub");
    writeFile(f.root + "/sub/new.md", "# new");
}

inline std::vector<CaptureRequest> batchRequests(const RestoreFixture& f, CaptureSource source) {
    std::vector<CaptureRequest> requests;
    for (const auto& unit : batchUnits())
        requests.push_back({f.folder.id, f.root, f.root + "/" + unit.path, unit.isPackage, source, std::nullopt});
    return requests;
}

// Every failed unit as one line; empty when each was stored, unchanged or skipped.
inline std::string failuresOf(const std::vector<CaptureResult>& results) {
    std::string text;
    for (const auto& result : results) {
        if (!result.error) continue;
        try {
            std::rethrow_exception(result.error);
        } catch (const std::exception& error) {
            text += result.request.unit + ": " + error.what() + "\n";
        }
    }
    return text;
}

}  // namespace vosklin::test
