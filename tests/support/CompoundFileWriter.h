#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vosklin::test {

// Little-endian stores into `b` at `at`, as both file formats lay out their numbers.
void put16(std::string& b, std::size_t at, std::uint16_t value);
void put32(std::string& b, std::size_t at, std::uint32_t value);

// A compound file written by CompoundFileWriter, with where its parts went so
// that a test can damage them on purpose.
struct CompoundFileImage {
    std::string bytes;
    std::uint32_t sectorSize = 512;
    std::uint32_t firstFatSector = 0, firstMiniFatSector = 0, firstDirectorySector = 0;
    std::uint32_t fatSectors = 0, difatSectors = 0;
    std::map<std::string, std::uint32_t> firstSector;  // per stream path; a mini sector for streams under 4096 bytes

    std::size_t sectorOffset(std::uint32_t sector) const { return (std::size_t(sector) + 1) * sectorSize; }
    void put32(std::size_t offset, std::uint32_t value);
    void setFat(std::uint32_t sector, std::uint32_t next);
    void setMiniFat(std::uint32_t miniSector, std::uint32_t next);
    // Directory entry `index`: 0 is the root, then the streams in the order added, each after the
    // storages on its path that are not there yet.
    std::size_t entryOffset(std::uint32_t index) const { return sectorOffset(firstDirectorySector) + 128 * index; }
};

// Writes a valid compound file holding the given streams, each named by its
// path ("ObjectPool/_1/WordDocument" puts it in two nested storages):
// header, FAT (with DIFAT sectors past 109 FAT sectors), directory with each
// storage's children in a balanced sibling tree, and mini FAT plus mini stream for the
// streams under 4096 bytes. Version 3 (512-byte sectors) or 4 (4096).
class CompoundFileWriter {
public:
    explicit CompoundFileWriter(int majorVersion = 3) : majorVersion_(majorVersion) {}
    CompoundFileWriter& add(std::string name, std::string bytes);
    CompoundFileImage write() const;

private:
    int majorVersion_;
    std::vector<std::pair<std::string, std::string>> streams_;
};

}  // namespace vosklin::test
