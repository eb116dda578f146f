#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/FileSystem.h"

namespace vosklin {

// Turns a stored payload into the plain text content search indexes.
//
// The kind is told by the payload's extension (lower-cased): a package yields
// text only as "rtfd" (its "TXT.rtf"); a plain file over `sizeLimit` bytes
// yields none, checked before anything is read; "pdf", "rtf", "docx", "doc"
// and "odt" go to their readers; anything else is decoded as plain text
// (UTF-16 with a byte-order mark, else UTF-8).
//
// Returns the text as UTF-8, or nothing when the payload has none (an
// unsupported kind, too large, empty, undecodable, a locked or unreadable PDF).
// Throws TextExtractionError when a document of a supported kind is damaged,
// FileSystemError when the payload cannot be read. Stateless apart from the
// file system it reads through; safe to use from several threads.
class TextExtractor {
public:
    static constexpr std::uint64_t sizeLimit = 20'971'520;  // 20 MiB; exactly this much is still read
    static constexpr std::size_t pdfCharacterLimit = 256'000;

    explicit TextExtractor(FileSystem& fileSystem);

    std::optional<std::string> extract(const std::string& path, bool isPackage) const;

private:
    FileSystem& fileSystem_;
};

}  // namespace vosklin
