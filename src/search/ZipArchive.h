#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace vosklin {

// A zip archive read from bytes in memory, one entry streamed at a time.
//
// The archive borrows `bytes`: they must outlive it. Entries are streamed in
// chunks to a callback, so an entry is never held whole; each is bounded by
// `entryLimit` decompressed bytes, checked both against the size the archive
// declares and against what actually comes out (a hostile archive may declare
// a small size and inflate to a huge one).
//
// Throws TextExtractionError when the bytes are not a zip archive, an entry is
// missing, encrypted, damaged (bad deflate data, a wrong checksum) or larger
// than the limit. One archive is not to be shared between threads; separate
// archives are independent.
class ZipArchive {
public:
    ZipArchive(std::string_view bytes, std::uint64_t entryLimit);
    ~ZipArchive();
    ZipArchive(const ZipArchive&) = delete;
    ZipArchive& operator=(const ZipArchive&) = delete;

    // Calls `chunk` with the decompressed contents of the entry named `name`,
    // in order, in pieces of at most 64 KiB.
    void stream(const std::string& name, const std::function<void(std::string_view)>& chunk) const;

private:
    struct Archive;
    std::unique_ptr<Archive> archive_;
    std::uint64_t entryLimit_;
};

}  // namespace vosklin
