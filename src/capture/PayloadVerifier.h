#pragma once

#include <string>

#include "platform/FileSystem.h"

namespace vosklin {

// Catches copies taken while a file was still being written: for formats that
// end with a known marker, a payload without it is not verified. The version
// is kept all the same (it is what was there); the flag only warns.
//
//   pdf                                    "%%EOF" within the last 1 KiB
//   zip, docx/xlsx/pptx (and -m), odt/ods/odp/odg,
//   epub, jar, and the zip-based iWork files the end-of-central-directory record ("PK\5\6")
//                                          within the last 65,557 bytes
//   png                                    ends with the IEND chunk
//   jpg, jpeg                              ends with the end-of-image marker FF D9 (trailing NULs allowed)
//   gif                                    ends with the trailer byte 0x3B
//
// Everything else, packages included, is verified. An unreadable payload, or
// one that is not a regular file, is not.
class PayloadVerifier {
public:
    explicit PayloadVerifier(FileSystem& fileSystem) : fileSystem_(fileSystem) {}

    bool isVerified(const std::string& payloadPath, bool isPackage);

private:
    FileSystem& fileSystem_;
};

}  // namespace vosklin
