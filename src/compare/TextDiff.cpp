#include "compare/TextDiff.h"

#include <algorithm>
#include <unordered_set>

#include "platform/PathJson.h"

namespace vosklin::TextDiff {
namespace {

bool isBinaryByte(unsigned char c) {
    if (c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r' || c == 0x1B) return false;
    return c < 0x20 || c == 0x7F;
}

// Length of the newline character at `at`, or 0.
std::size_t newlineAt(std::string_view text, std::size_t at) {
    const auto c = static_cast<unsigned char>(text[at]);
    if (c == '\n' || c == '\v' || c == '\f' || c == '\r') return 1;
    if (c == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) == 0x85) return 2;  // NEL
    if (c == 0xE2 && at + 2 < text.size() && static_cast<unsigned char>(text[at + 1]) == 0x80) {
        const auto third = static_cast<unsigned char>(text[at + 2]);
        if (third == 0xA8 || third == 0xA9) return 3;  // LS, PS
    }
    return 0;
}

struct Side {
    std::vector<std::string> lines;
    std::vector<std::uint64_t> hashes;
};

std::optional<Side> prepare(std::string_view bytes) {
    auto text = decode(bytes);
    if (!text) return std::nullopt;
    Side side;
    side.lines = splitLines(*text);
    side.hashes.reserve(side.lines.size());
    for (const auto& line : side.lines) side.hashes.push_back(lineHash(line));
    return side;
}

Result summary(const Side& older, const Side& newer) {
    Result result;
    result.kind = Result::Kind::summary;
    const std::size_t length = std::max(older.hashes.size(), newer.hashes.size());
    int runStart = -1;
    for (std::size_t i = 0; i < length; ++i) {
        const bool inOld = i < older.hashes.size(), inNew = i < newer.hashes.size();
        const bool same = inOld && inNew && older.hashes[i] == newer.hashes[i];
        if (!same) {
            if (inNew) ++result.newerDiffering;
            if (inOld) ++result.olderDiffering;
            if (runStart < 0) runStart = int(i);
        } else if (runStart >= 0) {
            result.regions.push_back({runStart + 1, int(i) - runStart});
            runStart = -1;
        }
    }
    if (runStart >= 0) result.regions.push_back({runStart + 1, int(length) - runStart});
    return result;
}

// Myers' difference in linear space: find the middle snake of a box, recurse
// on both sides of it, and collect the path's points.
class Myers {
public:
    Myers(const std::uint64_t* a, const std::uint64_t* b) : a_(a), b_(b) {}

    struct Point {
        long x, y;
    };

    void path(long left, long top, long right, long bottom, std::vector<Point>& points) {
        Point start, finish;
        if (!midpoint(left, top, right, bottom, start, finish)) return;
        std::vector<Point> head, tail;
        path(left, top, start.x, start.y, head);
        path(finish.x, finish.y, right, bottom, tail);
        if (head.empty()) points.push_back(start);
        else points.insert(points.end(), head.begin(), head.end());
        if (tail.empty()) points.push_back(finish);
        else points.insert(points.end(), tail.begin(), tail.end());
    }

private:
    bool midpoint(long left, long top, long right, long bottom, Point& start, Point& finish) {
        const long width = right - left, height = bottom - top;
        const long size = width + height;
        if (size == 0) return false;
        const long delta = width - height;
        const long max = (size + 1) / 2;
        const long offset = max + 1;
        std::vector<long> forward(std::size_t(2 * max + 3), 0), backward(std::size_t(2 * max + 3), 0);
        forward[std::size_t(1 + offset)] = left;
        backward[std::size_t(1 + offset)] = bottom;
        auto vf = [&](long k) -> long& { return forward[std::size_t(k + offset)]; };
        auto vb = [&](long c) -> long& { return backward[std::size_t(c + offset)]; };
        for (long d = 0; d <= max; ++d) {
            for (long k = d; k >= -d; k -= 2) {
                const long c = k - delta;
                long x, px;
                if (k == -d || (k != d && vf(k - 1) < vf(k + 1))) {
                    px = x = vf(k + 1);
                } else {
                    px = vf(k - 1);
                    x = px + 1;
                }
                long y = top + (x - left) - k;
                const long py = (d == 0 || x != px) ? y : y - 1;
                while (x < right && y < bottom && a_[x] == b_[y]) ++x, ++y;
                vf(k) = x;
                if ((delta & 1) && c >= -(d - 1) && c <= d - 1 && y >= vb(c)) {
                    start = {px, py};
                    finish = {x, y};
                    return true;
                }
            }
            for (long c = d; c >= -d; c -= 2) {
                const long k = c + delta;
                long y, py;
                if (c == -d || (c != d && vb(c - 1) > vb(c + 1))) {
                    py = y = vb(c + 1);
                } else {
                    py = vb(c - 1);
                    y = py - 1;
                }
                long x = left + (y - top) + k;
                const long px = (d == 0 || y != py) ? x : x + 1;
                while (x > left && y > top && a_[x - 1] == b_[y - 1]) --x, --y;
                vb(c) = y;
                if (!(delta & 1) && k >= -d && k <= d && x <= vf(k)) {
                    start = {x, y};
                    finish = {px, py};
                    return true;
                }
            }
        }
        return false;
    }

    const std::uint64_t* a_;
    const std::uint64_t* b_;
};

}  // namespace

bool Result::isIdentical() const {
    return kind == Kind::lines &&
           std::all_of(lines.begin(), lines.end(), [](const Line& line) { return line.kind == Line::Kind::context; });
}

std::optional<std::string> decode(std::string_view bytes) {
    if (isValidUtf8(bytes)) return std::string(bytes);
    std::string text;
    text.reserve(bytes.size() + bytes.size() / 8);
    for (unsigned char c : bytes) {
        if (isBinaryByte(c)) return std::nullopt;
        if (c < 0x80) {
            text += char(c);
        } else {
            text += char(0xC0 | (c >> 6));
            text += char(0x80 | (c & 0x3F));
        }
    }
    return text;
}

std::vector<std::string> splitLines(std::string_view text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t at = 0; at < text.size();) {
        if (std::size_t length = newlineAt(text, at)) {
            lines.emplace_back(text.substr(start, at - start));
            at += length;
            start = at;
        } else {
            ++at;
        }
    }
    lines.emplace_back(text.substr(start));
    return lines;
}

std::uint64_t lineHash(std::string_view line) {
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (unsigned char c : line) {
        hash ^= c;
        hash *= 0x100000001b3ULL;
    }
    return hash;
}

Result compare(std::string_view olderBytes, std::string_view newerBytes) {
    const bool tooLarge = olderBytes.size() > byteLimit || newerBytes.size() > byteLimit;
    auto older = prepare(olderBytes);
    auto newer = prepare(newerBytes);
    if (!older || !newer) return {};
    if (tooLarge || older->lines.size() > lineLimit || newer->lines.size() > lineLimit) return summary(*older, *newer);

    const auto& a = older->hashes;
    const auto& b = newer->hashes;
    std::size_t prefix = 0;
    while (prefix < a.size() && prefix < b.size() && a[prefix] == b[prefix]) ++prefix;
    std::size_t suffix = 0;
    while (suffix < a.size() - prefix && suffix < b.size() - prefix &&
           a[a.size() - 1 - suffix] == b[b.size() - 1 - suffix])
        ++suffix;
    const std::size_t oldMiddle = a.size() - prefix - suffix, newMiddle = b.size() - prefix - suffix;
    if (oldMiddle > middleLimit || newMiddle > middleLimit) return summary(*older, *newer);

    Result result;
    result.kind = Result::Kind::lines;
    int oldNumber = 0, newNumber = 0;
    auto context = [&](std::size_t newIndex) {
        result.lines.push_back({Line::Kind::context, newer->lines[newIndex], ++oldNumber, ++newNumber});
    };
    auto removed = [&](std::size_t oldIndex) {
        result.lines.push_back({Line::Kind::removed, older->lines[oldIndex], ++oldNumber, std::nullopt});
    };
    auto added = [&](std::size_t newIndex) {
        result.lines.push_back({Line::Kind::added, newer->lines[newIndex], std::nullopt, ++newNumber});
    };
    for (std::size_t i = 0; i < prefix; ++i) context(i);

    // Lines of the middle whose text never occurs on the other side can only be
    // removed or added: set them aside, so the search runs on the lines that
    // could match (a block rewritten wholesale then costs nothing to search).
    // The edit script stays a shortest one: no such line is part of a longest common run.
    std::unordered_set<std::uint64_t> inOld(a.begin() + long(prefix), a.begin() + long(prefix + oldMiddle));
    std::unordered_set<std::uint64_t> inNew(b.begin() + long(prefix), b.begin() + long(prefix + newMiddle));
    std::vector<std::size_t> oldKept, newKept;  // indexes into a and b
    for (std::size_t i = prefix; i < prefix + oldMiddle; ++i)
        if (inNew.count(a[i])) oldKept.push_back(i);
    for (std::size_t j = prefix; j < prefix + newMiddle; ++j)
        if (inOld.count(b[j])) newKept.push_back(j);
    std::vector<std::uint64_t> keptA, keptB;
    for (std::size_t i : oldKept) keptA.push_back(a[i]);
    for (std::size_t j : newKept) keptB.push_back(b[j]);

    // Pairs of matched lines, found as a path through the edit graph of the kept lines.
    std::vector<std::pair<std::size_t, std::size_t>> matches;
    Myers myers(keptA.data(), keptB.data());
    std::vector<Myers::Point> points;
    myers.path(0, 0, long(keptA.size()), long(keptB.size()), points);
    auto diagonal = [&](long& x, long& y, long toX, long toY) {
        while (x < toX && y < toY && keptA[std::size_t(x)] == keptB[std::size_t(y)]) {
            matches.emplace_back(oldKept[std::size_t(x)], newKept[std::size_t(y)]);
            ++x, ++y;
        }
    };
    if (keptA.empty() || keptB.empty()) points.clear();
    for (std::size_t i = 0; i + 1 < points.size(); ++i) {
        long x = points[i].x, y = points[i].y;
        const long toX = points[i + 1].x, toY = points[i + 1].y;
        diagonal(x, y, toX, toY);
        if (toX - x < toY - y) ++y;
        else if (toX - x > toY - y) ++x;
        diagonal(x, y, toX, toY);
    }
    // Between two matched lines: what was removed on the old side, then what was added on the new.
    std::size_t nextOld = prefix, nextNew = prefix;
    matches.emplace_back(prefix + oldMiddle, prefix + newMiddle);  // the end of the middle
    for (const auto& [oldIndex, newIndex] : matches) {
        while (nextOld < oldIndex) removed(nextOld++);
        while (nextNew < newIndex) added(nextNew++);
        if (oldIndex < prefix + oldMiddle) {
            context(newIndex);
            ++nextOld;
            ++nextNew;
        }
    }

    for (std::size_t i = 0; i < suffix; ++i) context(b.size() - suffix + i);
    return result;
}

}  // namespace vosklin::TextDiff
