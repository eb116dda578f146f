#include "app/ServedFiles.h"

#include <array>
#include <cctype>
#include <utility>

#include "app/ApiHandlers.h"
#include "app/ApiRequest.h"
#include "compare/PdfPageRenderer.h"
#include "platform/FileSystemError.h"
#include "platform/PathNames.h"

namespace vosklin {

std::string_view ServedFiles::contentTypeOf(std::string_view name) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 9> pictures{{
        {"png", "image/png"},
        {"jpg", "image/jpeg"},
        {"jpeg", "image/jpeg"},
        {"gif", "image/gif"},
        {"webp", "image/webp"},
        {"bmp", "image/bmp"},
        {"avif", "image/avif"},
        {"ico", "image/x-icon"},
        {"svg", "image/svg+xml"},
    }};
    std::string extension = pathExtension(name);
    for (char& c : extension) c = char(std::tolower(static_cast<unsigned char>(c)));
    for (const auto& [known, type] : pictures)
        if (extension == known) return type;
    // A PDF included: its pages are rendered by the daemon, never by the browser's viewer.
    return "application/octet-stream";
}

ServedFiles::Version ServedFiles::version(std::int64_t versionID) {
    if (!context_.storeExists()) throw ApiError(404, "Vosklin has no history yet");
    auto& catalog = context_.catalog();
    auto version = catalog.version(versionID);
    if (!version) throw ApiError(404, "There is no version " + std::to_string(versionID));
    const auto file = catalog.requireFile(version->fileID);
    if (file.isPackage) throw ApiError(404, "Version " + std::to_string(versionID) + " is a folder (a package)");
    StoredPayload payload(context_.fileSystem(), context_.layout(), *version, false);
    try {
        payload.locate();
    } catch (const StoredPayloadError& error) {
        throw ApiError(500, error.what());
    }
    return {std::move(payload), file.relativePath, version->logicalBytes};
}

ServedFiles::Live ServedFiles::live(std::int64_t fileID) {
    const std::string missing = "File " + std::to_string(fileID) + " is not in its folder as a regular file";
    if (!context_.storeExists()) throw ApiError(404, "Vosklin has no history yet");
    auto file = context_.catalog().file(fileID);
    if (!file || file->isPackage) throw ApiError(404, "There is no file " + std::to_string(fileID));
    WatchedFolder folder;
    try {
        folder = context_.folders().require(file->folderID);
    } catch (const std::exception&) {
        throw ApiError(404, "The folder of file " + std::to_string(fileID) + " is no longer watched");
    }
    try {
        auto& fileSystem = context_.fileSystem();
        UniqueFd directory = fileSystem.openDirectoryBeneath(folder.path, parentPath(file->relativePath));
        auto opened = openRegularFile(fileSystem, descriptorPath(directory.get()) + "/" + lastComponent(file->relativePath));
        if (!opened) throw ApiError(404, missing);
        return {std::move(*opened), file->relativePath};
    } catch (const FileSystemError&) {
        throw ApiError(404, missing);
    }
}

std::string ServedFiles::pdfBytes(std::int64_t id, bool isLive) {
    const auto tooLarge = [&] { return ApiError(413, "The PDF is too large to show here"); };
    if (!isLive) {
        auto served = version(id);
        if (served.size > largestPdf) throw tooLarge();
        try {
            return served.payload.read();
        } catch (const std::exception& error) {
            throw ApiError(500, error.what());
        }
    }
    auto served = live(id);
    if (served.file.status.size > largestPdf) throw tooLarge();
    std::string bytes;
    char buffer[65536];
    auto& fileSystem = context_.fileSystem();
    while (std::size_t count = fileSystem.read(served.file.fd.get(), buffer, sizeof buffer)) {
        if (std::int64_t(bytes.size() + count) > largestPdf) throw tooLarge();
        bytes.append(buffer, count);
    }
    return bytes;
}

nlohmann::json ServedFiles::pdfInfo(const ApiRequest& request) {
    const bool isLive = request.flag("live").value_or(false);
    const auto id = request.identifier(isLive ? "file" : "version");
    if (!id) throw ApiError(400, isLive ? "The request names no file" : "The request names no version");
    const auto pages = PdfPageRenderer::pageCount(pdfBytes(*id, isLive));
    if (!pages) throw ApiError(415, "This is not a PDF that can be opened");
    return {{"pageCount", *pages}};
}

}  // namespace vosklin
