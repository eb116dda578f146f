#include "search/CompoundFile.h"

#include <algorithm>
#include <cstring>

#include "search/TextExtractionError.h"

namespace vosklin {
namespace {

constexpr std::uint32_t maxRegularSector = 0xFFFFFFFA;
constexpr std::uint32_t endOfChain = 0xFFFFFFFE;
constexpr std::uint32_t noEntry = 0xFFFFFFFF;
constexpr std::size_t headerSize = 512;
constexpr std::size_t headerDifatSlots = 109;
constexpr std::size_t entrySize = 128;
constexpr std::uint64_t miniStreamCutoff = 4096;
constexpr std::size_t miniSectorSize = 64;
constexpr std::uint8_t storageType = 1, streamType = 2, rootType = 5;

[[noreturn]] void damaged(const std::string& what) { throw TextExtractionError("compound file: " + what); }

// Little-endian reads; callers have checked that the bytes are there.
std::uint16_t u16(std::string_view b, std::size_t at) {
    return std::uint16_t(std::uint8_t(b[at]) | std::uint8_t(b[at + 1]) << 8);
}
std::uint32_t u32(std::string_view b, std::size_t at) { return u16(b, at) | std::uint32_t(u16(b, at + 2)) << 16; }
std::uint64_t u64(std::string_view b, std::size_t at) { return u32(b, at) | std::uint64_t(u32(b, at + 4)) << 32; }

// The indices of a chain through `table` from `start`: `wanted` of them when
// given (the chain may go on; the rest is not needed), else up to the end
// mark. Every index must be below `count`; an index met twice is a cycle.
std::vector<std::uint32_t> followChain(const std::vector<std::uint32_t>& table, std::uint32_t start,
                                       std::uint32_t count, std::optional<std::uint64_t> wanted, const char* what) {
    std::vector<std::uint32_t> chain;
    std::vector<bool> seen(count, false);
    std::uint32_t index = start;
    while (!wanted || chain.size() < *wanted) {
        if (index == endOfChain) {
            if (wanted) damaged(std::string("the ") + what + " chain ends before its data does");
            break;
        }
        if (index >= count) damaged(std::string("the ") + what + " chain points outside the file");
        if (seen[index]) damaged(std::string("the ") + what + " chain runs in a cycle");
        seen[index] = true;
        chain.push_back(index);
        if (wanted && chain.size() == *wanted) break;
        if (index >= table.size()) damaged(std::string("the ") + what + " chain leaves its allocation table");
        index = table[index];
    }
    return chain;
}

bool sameName(std::u16string_view stored, std::string_view wanted) {
    if (stored.size() != wanted.size()) return false;
    const auto upper = [](char16_t c) { return c >= u'a' && c <= u'z' ? char16_t(c - u'a' + u'A') : c; };
    for (std::size_t i = 0; i < stored.size(); ++i)
        if (upper(stored[i]) != upper(char16_t(std::uint8_t(wanted[i])))) return false;
    return true;
}

}  // namespace

CompoundFile::CompoundFile(std::string_view bytes) : bytes_(bytes) {
    static constexpr unsigned char signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    if (bytes.size() < headerSize || std::memcmp(bytes.data(), signature, sizeof signature) != 0)
        damaged("not a compound file");
    if (u16(bytes, 0x1C) != 0xFFFE) damaged("not little-endian");
    const auto major = u16(bytes, 0x1A);
    sectorShift_ = u16(bytes, 0x1E);
    if (!(major == 3 && sectorShift_ == 9) && !(major == 4 && sectorShift_ == 12))
        damaged("unknown version or sector size");
    if (u16(bytes, 0x20) != 6) damaged("unknown mini sector size");
    versionFour_ = major == 4;
    const std::size_t sectorSize = std::size_t(1) << sectorShift_;
    if (bytes.size() < sectorSize) damaged("shorter than its header");
    // A last sector cut short still counts; reading past the file's end is caught where it is read.
    sectorCount_ = std::uint32_t(std::min<std::uint64_t>((bytes.size() - 1) / sectorSize, maxRegularSector));

    // The FAT's own sectors: the first 109 listed in the header, the rest in a chain of DIFAT sectors.
    const std::uint32_t fatSectors = u32(bytes, 0x2C);
    if (fatSectors > sectorCount_) damaged("more FAT sectors than the file holds");
    std::vector<std::uint32_t> fatChain;
    for (std::size_t i = 0; i < headerDifatSlots && fatChain.size() < fatSectors; ++i)
        fatChain.push_back(u32(bytes, 0x4C + 4 * i));
    std::vector<bool> seenDifat(sectorCount_, false);
    const std::size_t perDifatSector = sectorSize / 4 - 1;
    for (std::uint32_t next = u32(bytes, 0x44); fatChain.size() < fatSectors;) {
        if (next >= sectorCount_) damaged("the DIFAT chain points outside the file");
        if (seenDifat[next]) damaged("the DIFAT chain runs in a cycle");
        seenDifat[next] = true;
        const auto difat = sector(next);
        for (std::size_t i = 0; i < perDifatSector && fatChain.size() < fatSectors; ++i)
            fatChain.push_back(u32(difat, 4 * i));
        next = u32(difat, 4 * perDifatSector);
    }
    fat_.reserve(std::size_t(fatSectors) * (sectorSize / 4));
    for (const auto index : fatChain) {
        if (index >= sectorCount_) damaged("a FAT sector lies outside the file");
        const auto fat = sector(index);
        for (std::size_t at = 0; at < sectorSize; at += 4) fat_.push_back(u32(fat, at));
    }

    for (const auto index : followChain(fat_, u32(bytes, 0x30), sectorCount_, std::nullopt, "directory"))
        directory_.append(sector(index));
    if (directory_.size() < entrySize || entry(0).type != rootType) damaged("no root entry");
}

std::string_view CompoundFile::sector(std::uint32_t index, std::optional<std::size_t> needed) const {
    const std::size_t size = needed.value_or(std::size_t(1) << sectorShift_);
    const std::uint64_t offset = (std::uint64_t(index) + 1) << sectorShift_;
    if (offset + size > bytes_.size()) damaged("truncated: a sector lies past the end of the file");
    return bytes_.substr(offset, size);
}

CompoundFile::Entry CompoundFile::entry(std::uint32_t index) const {
    const std::string_view raw = std::string_view(directory_).substr(std::size_t(index) * entrySize, entrySize);
    Entry result;
    // The name ends at its terminating zero; the stored length is not trusted.
    for (std::size_t at = 0; at < 64; at += 2) {
        const char16_t unit = u16(raw, at);
        if (unit == 0) break;
        result.name.push_back(unit);
    }
    result.type = std::uint8_t(raw[0x42]);
    result.left = u32(raw, 0x44);
    result.right = u32(raw, 0x48);
    result.child = u32(raw, 0x4C);
    result.start = u32(raw, 0x74);
    // Version 3 files only define the low half; old writers left junk in the high one.
    result.size = versionFour_ ? u64(raw, 0x78) : u32(raw, 0x78);
    return result;
}

std::optional<std::string> CompoundFile::stream(std::string_view name) const {
    const auto entryCount = std::uint32_t(directory_.size() / entrySize);
    std::vector<bool> seen(entryCount, false);
    // The root's children form a binary tree through their sibling links; walked with a stack, not recursion.
    std::vector<std::uint32_t> pending{entry(0).child};
    while (!pending.empty()) {
        const auto index = pending.back();
        pending.pop_back();
        if (index == noEntry) continue;
        if (index >= entryCount) damaged("a directory link points outside the directory");
        if (seen[index]) damaged("the directory tree runs in a cycle");
        seen[index] = true;
        const auto found = entry(index);
        if (found.type != streamType && found.type != storageType) damaged("a directory link points to an unused entry");
        if (found.type == streamType && sameName(found.name, name)) {
            if (found.size > bytes_.size()) damaged("a stream is larger than the file");
            return found.size < miniStreamCutoff ? miniStream(found.start, found.size)
                                                 : regularStream(found.start, found.size);
        }
        pending.push_back(found.left);
        pending.push_back(found.right);
    }
    return std::nullopt;
}

std::string CompoundFile::regularStream(std::uint32_t start, std::uint64_t size) const {
    const std::uint64_t sectorSize = std::uint64_t(1) << sectorShift_;
    std::string result;
    result.reserve(size);
    for (const auto index : followChain(fat_, start, sectorCount_, (size + sectorSize - 1) / sectorSize, "stream")) {
        const auto take = std::min<std::uint64_t>(sectorSize, size - result.size());
        result.append(sector(index, take));
    }
    return result;
}

std::string CompoundFile::miniStream(std::uint32_t start, std::uint64_t size) const {
    if (size == 0) return {};
    const auto root = entry(0);
    if (root.size > bytes_.size()) damaged("the mini stream is larger than the file");
    const std::string container = regularStream(root.start, root.size);
    std::vector<std::uint32_t> miniFat;
    for (const auto index : followChain(fat_, u32(bytes_, 0x3C), sectorCount_, std::nullopt, "mini FAT")) {
        const auto raw = sector(index);
        for (std::size_t offset = 0; offset < raw.size(); offset += 4) miniFat.push_back(u32(raw, offset));
    }
    const auto miniSectors = std::uint32_t((container.size() + miniSectorSize - 1) / miniSectorSize);
    std::string result;
    result.reserve(size);
    for (const auto index :
         followChain(miniFat, start, miniSectors, (size + miniSectorSize - 1) / miniSectorSize, "mini stream")) {
        const std::size_t offset = std::size_t(index) * miniSectorSize;
        const auto take = std::min<std::uint64_t>(miniSectorSize, size - result.size());
        if (offset + take > container.size()) damaged("a mini sector lies past the end of the mini stream");
        result.append(container, offset, take);
    }
    return result;
}

}  // namespace vosklin
