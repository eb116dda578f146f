#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vosklin {

// A compound file read from memory: the sector-based container (header, FAT
// and its DIFAT extension, directory, mini FAT and mini stream) that older
// office documents are stored in. Sectors of 512 bytes (version 3) and 4096
// bytes (version 4) are read; streams under 4096 bytes live in the mini stream.
//
// Only streams directly under the root storage are looked up, so the streams
// of an embedded object in a sub-storage are never mistaken for the document's.
//
// Keeps a view of `bytes`: the caller owns them and keeps them alive while the
// object is used. The bytes are untrusted: every sector index is checked
// against the file, every chain is bounded and a sector met twice is a cycle,
// and no stream may claim more bytes than the file has. Throws
// TextExtractionError when the bytes are not a compound file or are damaged.
// Immutable after construction; const use from several threads is safe.
class CompoundFile {
public:
    explicit CompoundFile(std::string_view bytes);

    // The bytes of the stream named `name` (compared case-insensitively) in
    // the root storage, or nothing when there is none. Throws
    // TextExtractionError when the stream's sectors are damaged.
    std::optional<std::string> stream(std::string_view name) const;

private:
    struct Entry {
        std::u16string name;
        std::uint8_t type;
        std::uint32_t left, right, child, start;
        std::uint64_t size;
    };

    Entry entry(std::uint32_t index) const;
    std::string regularStream(std::uint32_t start, std::uint64_t size) const;
    std::string miniStream(std::uint32_t start, std::uint64_t size) const;
    // Sector `index` or its first `needed` bytes, which must all lie in the file.
    std::string_view sector(std::uint32_t index, std::optional<std::size_t> needed = std::nullopt) const;

    std::string_view bytes_;
    std::uint32_t sectorShift_ = 9;
    std::uint32_t sectorCount_ = 0;
    bool versionFour_ = false;
    std::vector<std::uint32_t> fat_;
    std::string directory_;
};

}  // namespace vosklin
