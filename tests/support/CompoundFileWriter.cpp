#include "support/CompoundFileWriter.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <stdexcept>
#include <string_view>

namespace vosklin::test {

void put16(std::string& b, std::size_t at, std::uint16_t value) {
    b[at] = char(value & 0xFF);
    b[at + 1] = char(value >> 8);
}
void put32(std::string& b, std::size_t at, std::uint32_t value) {
    put16(b, at, std::uint16_t(value & 0xFFFF));
    put16(b, at + 2, std::uint16_t(value >> 16));
}

namespace {

constexpr std::uint32_t endOfChain = 0xFFFFFFFE, freeSector = 0xFFFFFFFF, noEntry = 0xFFFFFFFF;
constexpr std::uint32_t fatMark = 0xFFFFFFFD, difatMark = 0xFFFFFFFC;
constexpr std::size_t cutoff = 4096, miniSize = 64;

std::uint32_t divideUp(std::size_t value, std::size_t by) { return std::uint32_t((value + by - 1) / by); }


// Links `count` consecutive entries of `table` from `first` into one chain.
void chain(std::vector<std::uint32_t>& table, std::uint32_t first, std::uint32_t count) {
    for (std::uint32_t k = 0; k < count; ++k) table[first + k] = k + 1 < count ? first + k + 1 : endOfChain;
}

}  // namespace

void CompoundFileImage::put32(std::size_t offset, std::uint32_t value) { test::put32(bytes, offset, value); }

void CompoundFileImage::setFat(std::uint32_t sector, std::uint32_t next) {
    const std::uint32_t perSector = sectorSize / 4;
    put32(sectorOffset(firstFatSector + sector / perSector) + 4 * (sector % perSector), next);
}

void CompoundFileImage::setMiniFat(std::uint32_t miniSector, std::uint32_t next) {
    const std::uint32_t perSector = sectorSize / 4;
    put32(sectorOffset(firstMiniFatSector + miniSector / perSector) + 4 * (miniSector % perSector), next);
}

CompoundFileWriter& CompoundFileWriter::add(std::string name, std::string bytes) {
    for (std::size_t from = 0, to; from <= name.size(); from = to + 1) {
        to = std::min(name.find('/', from), name.size());
        if (to == from || to - from > 31) throw std::invalid_argument("each name in a stream's path has 1 to 31 characters");
    }
    streams_.emplace_back(std::move(name), std::move(bytes));
    return *this;
}

CompoundFileImage CompoundFileWriter::write() const {
    CompoundFileImage image;
    image.sectorSize = majorVersion_ == 4 ? 4096 : 512;
    const std::size_t ss = image.sectorSize, perSector = ss / 4;

    // Sizes first: mini sectors, then regular sectors for everything but the FAT and DIFAT.
    std::vector<std::uint32_t> miniStart(streams_.size(), endOfChain), miniCount(streams_.size(), 0);
    std::uint32_t miniTotal = 0;
    for (std::size_t i = 0; i < streams_.size(); ++i)
        if (streams_[i].second.size() < cutoff && !streams_[i].second.empty()) {
            miniStart[i] = miniTotal;
            miniCount[i] = divideUp(streams_[i].second.size(), miniSize);
            miniTotal += miniCount[i];
        }
    const std::uint32_t miniFatSectors = divideUp(std::size_t(miniTotal) * 4, ss);
    // The directory's entries: the root, storages as the paths name them, then streams.
    struct Node {
        std::string name;
        std::uint8_t type;
        std::uint32_t parent;
        std::size_t stream = 0;
        std::uint32_t left = noEntry, right = noEntry, child = noEntry;
    };
    std::vector<Node> nodes{{"Root Entry", 5, noEntry}};
    for (std::size_t i = 0; i < streams_.size(); ++i) {
        std::uint32_t parent = 0;
        std::string_view path = streams_[i].first;
        for (auto slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/')) {
            const std::string storage(path.substr(0, slash));
            path.remove_prefix(slash + 1);
            const auto found = std::find_if(nodes.begin(), nodes.end(), [&](const Node& n) {
                return n.parent == parent && n.type == 1 && n.name == storage;
            });
            if (found != nodes.end()) {
                parent = std::uint32_t(found - nodes.begin());
            } else {
                nodes.push_back({storage, 1, parent});
                parent = std::uint32_t(nodes.size() - 1);
            }
        }
        nodes.push_back({std::string(path), 2, parent, i});
    }
    const std::uint32_t directorySectors = divideUp(nodes.size() * 128, ss);
    const std::uint32_t containerSectors = divideUp(std::size_t(miniTotal) * miniSize, ss);
    std::uint32_t data = miniFatSectors + directorySectors + containerSectors;
    for (const auto& [name, bytes] : streams_)
        if (bytes.size() >= cutoff) data += divideUp(bytes.size(), ss);
    std::uint32_t fat = 0, difat = 0;
    for (;;) {
        const std::uint32_t needFat = divideUp(data + fat + difat, perSector);
        const std::uint32_t needDifat = needFat > 109 ? divideUp(needFat - 109, perSector - 1) : 0;
        if (needFat == fat && needDifat == difat) break;
        fat = needFat;
        difat = needDifat;
    }
    image.fatSectors = fat;
    image.difatSectors = difat;
    image.firstFatSector = 0;
    image.firstMiniFatSector = fat + difat;
    image.firstDirectorySector = image.firstMiniFatSector + miniFatSectors;
    const std::uint32_t firstContainerSector = image.firstDirectorySector + directorySectors;
    const std::uint32_t total = fat + difat + data;

    std::vector<std::uint32_t> table(std::size_t(fat) * perSector, freeSector);
    std::fill_n(table.begin(), fat, fatMark);
    std::fill_n(table.begin() + fat, difat, difatMark);
    chain(table, image.firstMiniFatSector, miniFatSectors);
    chain(table, image.firstDirectorySector, directorySectors);
    chain(table, firstContainerSector, containerSectors);
    std::vector<std::uint32_t> start(streams_.size(), endOfChain);
    std::uint32_t next = firstContainerSector + containerSectors;
    for (std::size_t i = 0; i < streams_.size(); ++i) {
        if (streams_[i].second.size() < cutoff) {
            start[i] = miniStart[i];
            continue;
        }
        const auto count = divideUp(streams_[i].second.size(), ss);
        start[i] = next;
        chain(table, next, count);
        next += count;
    }

    std::string& b = image.bytes;
    b.assign(ss * (std::size_t(total) + 1), '\0');
    static constexpr unsigned char signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::copy(std::begin(signature), std::end(signature), b.begin());
    put16(b, 0x18, 0x003E);
    put16(b, 0x1A, std::uint16_t(majorVersion_ == 4 ? 4 : 3));
    put16(b, 0x1C, 0xFFFE);
    put16(b, 0x1E, majorVersion_ == 4 ? 12 : 9);
    put16(b, 0x20, 6);
    put32(b, 0x28, majorVersion_ == 4 ? directorySectors : 0);
    put32(b, 0x2C, fat);
    put32(b, 0x30, image.firstDirectorySector);
    put32(b, 0x38, cutoff);
    put32(b, 0x3C, miniFatSectors ? image.firstMiniFatSector : endOfChain);
    put32(b, 0x40, miniFatSectors);
    put32(b, 0x44, difat ? fat : endOfChain);
    put32(b, 0x48, difat);
    for (std::uint32_t i = 0; i < 109; ++i) put32(b, 0x4C + 4 * i, i < fat ? i : freeSector);
    for (std::uint32_t d = 0; d < difat; ++d) {
        const std::size_t at = image.sectorOffset(fat + d);
        for (std::uint32_t k = 0; k < perSector - 1; ++k) {
            const std::size_t listed = 109 + std::size_t(d) * (perSector - 1) + k;
            put32(b, at + 4 * k, listed < fat ? std::uint32_t(listed) : freeSector);
        }
        put32(b, at + 4 * (perSector - 1), d + 1 < difat ? fat + d + 1 : endOfChain);
    }
    for (std::size_t i = 0; i < table.size(); ++i) put32(b, image.sectorOffset(std::uint32_t(i / perSector)) + 4 * (i % perSector), table[i]);

    std::vector<std::uint32_t> miniTable(std::size_t(miniFatSectors) * perSector, freeSector);
    std::string container(std::size_t(containerSectors) * ss, '\0');
    for (std::size_t i = 0; i < streams_.size(); ++i) {
        const auto& bytes = streams_[i].second;
        if (bytes.size() >= cutoff) {
            std::copy(bytes.begin(), bytes.end(), b.begin() + std::ptrdiff_t(image.sectorOffset(start[i])));
        } else if (!bytes.empty()) {
            chain(miniTable, miniStart[i], miniCount[i]);
            std::copy(bytes.begin(), bytes.end(), container.begin() + std::ptrdiff_t(miniStart[i] * miniSize));
        }
    }
    for (std::size_t i = 0; i < miniTable.size(); ++i)
        put32(b, image.sectorOffset(image.firstMiniFatSector) + 4 * i, miniTable[i]);
    std::copy(container.begin(), container.end(), b.begin() + std::ptrdiff_t(image.sectorOffset(firstContainerSector)));

    // Directory: every storage's children hang off it as a balanced tree, ordered as the format orders names.
    const auto key = [&](std::uint32_t i) {
        std::string upper = nodes[i].name;
        for (auto& c : upper) c = char(std::toupper(std::uint8_t(c)));
        return std::pair(upper.size(), upper);
    };
    for (std::uint32_t parent = 0; parent < nodes.size(); ++parent) {
        std::vector<std::uint32_t> order;
        for (std::uint32_t i = 1; i < nodes.size(); ++i)
            if (nodes[i].parent == parent) order.push_back(i);
        std::sort(order.begin(), order.end(), [&](auto x, auto y) { return key(x) < key(y); });
        const std::function<std::uint32_t(std::size_t, std::size_t)> build = [&](std::size_t lo, std::size_t hi) {
            if (lo >= hi) return noEntry;
            const std::size_t mid = (lo + hi) / 2;
            nodes[order[mid]].left = build(lo, mid);
            nodes[order[mid]].right = build(mid + 1, hi);
            return order[mid];
        };
        nodes[parent].child = build(0, order.size());
    }
    for (std::uint32_t index = 0; index < directorySectors * ss / 128; ++index) {
        const std::size_t at = image.entryOffset(index);
        if (index >= nodes.size()) {
            for (const std::size_t link : {0x44, 0x48, 0x4C}) put32(b, at + link, noEntry);
            continue;
        }
        const auto& node = nodes[index];
        std::uint32_t first = 0;
        std::uint64_t size = 0;
        if (index == 0) {
            first = containerSectors ? firstContainerSector : endOfChain;
            size = std::uint64_t(miniTotal) * miniSize;
        } else if (node.type == 2) {
            first = start[node.stream];
            size = streams_[node.stream].second.size();
            image.firstSector[streams_[node.stream].first] = first;
        }
        for (std::size_t k = 0; k < node.name.size(); ++k) put16(b, at + 2 * k, std::uint8_t(node.name[k]));
        put16(b, at + 0x40, std::uint16_t(2 * (node.name.size() + 1)));
        b[at + 0x42] = char(node.type);
        b[at + 0x43] = 1;  // black
        put32(b, at + 0x44, node.left);
        put32(b, at + 0x48, node.right);
        put32(b, at + 0x4C, node.child);
        put32(b, at + 0x74, first);
        put32(b, at + 0x78, std::uint32_t(size));
        put32(b, at + 0x7C, std::uint32_t(size >> 32));
    }
    return image;
}

}  // namespace vosklin::test
