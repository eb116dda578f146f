#include "platform/NaturalOrder.h"

#include <cctype>

namespace vosklin {

int naturalCompare(std::string_view a, std::string_view b) {
    std::size_t i = 0, j = 0;
    auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            // Compare the two numbers by value: skip leading zeros, then longer is larger.
            std::size_t startA = i, startB = j;
            while (startA < a.size() && a[startA] == '0') ++startA;
            while (startB < b.size() && b[startB] == '0') ++startB;
            std::size_t endA = startA, endB = startB;
            while (endA < a.size() && isDigit(a[endA])) ++endA;
            while (endB < b.size() && isDigit(b[endB])) ++endB;
            if (endA - startA != endB - startB) return endA - startA < endB - startB ? -1 : 1;
            for (std::size_t k = 0; k < endA - startA; ++k)
                if (a[startA + k] != b[startB + k]) return a[startA + k] < b[startB + k] ? -1 : 1;
            i = endA;
            j = endB;
            continue;
        }
        const int ca = std::tolower(static_cast<unsigned char>(a[i]));
        const int cb = std::tolower(static_cast<unsigned char>(b[j]));
        if (ca != cb) return ca < cb ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < a.size()) return 1;
    if (j < b.size()) return -1;
    return 0;
}

}  // namespace vosklin
