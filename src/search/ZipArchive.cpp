#include "search/ZipArchive.h"

#include <zip.h>

#include <array>

#include "search/TextExtractionError.h"

namespace vosklin {

struct ZipArchive::Archive {
    zip_t* zip = nullptr;
    ~Archive() {
        if (zip) zip_discard(zip);
    }
};

ZipArchive::ZipArchive(std::string_view bytes, std::uint64_t entryLimit)
    : archive_(std::make_unique<Archive>()), entryLimit_(entryLimit) {
    zip_error_t error;
    zip_error_init(&error);
    // The source does not free the bytes; it is owned by the archive once opened.
    zip_source_t* source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
    if (!source) {
        zip_error_fini(&error);
        throw TextExtractionError("the zip archive cannot be read");
    }
    archive_->zip = zip_open_from_source(source, ZIP_RDONLY, &error);
    if (!archive_->zip) {
        zip_source_free(source);
        std::string message = std::string("not a readable zip archive: ") + zip_error_strerror(&error);
        zip_error_fini(&error);
        throw TextExtractionError(message);
    }
    zip_error_fini(&error);
}

ZipArchive::~ZipArchive() = default;

void ZipArchive::stream(const std::string& name, const std::function<void(std::string_view)>& chunk) const {
    zip_t* zip = archive_->zip;
    const zip_int64_t index = zip_name_locate(zip, name.c_str(), 0);
    if (index < 0) throw TextExtractionError("the zip archive has no entry " + name);
    zip_stat_t stat;
    zip_stat_init(&stat);
    if (zip_stat_index(zip, zip_uint64_t(index), 0, &stat) != 0)
        throw TextExtractionError("the zip entry " + name + " cannot be read");
    if ((stat.valid & ZIP_STAT_SIZE) && stat.size > entryLimit_)
        throw TextExtractionError("the zip entry " + name + " is too large");

    struct File {
        zip_file_t* file;
        ~File() {
            if (file) zip_fclose(file);
        }
    } file{zip_fopen_index(zip, zip_uint64_t(index), 0)};
    if (!file.file) throw TextExtractionError("the zip entry " + name + " cannot be opened");

    std::array<char, 64 * 1024> buffer;
    std::uint64_t total = 0;
    for (;;) {
        const zip_int64_t count = zip_fread(file.file, buffer.data(), buffer.size());
        if (count < 0) throw TextExtractionError("the zip entry " + name + " is damaged");
        if (count == 0) break;
        total += std::uint64_t(count);
        if (total > entryLimit_) throw TextExtractionError("the zip entry " + name + " inflates too far");
        chunk(std::string_view(buffer.data(), std::size_t(count)));
    }
}

}  // namespace vosklin
