#include "search/ContentSearchModel.h"

#include <locale.h>
#include <wctype.h>

#include <cctype>
#include <map>
#include <utility>

namespace vosklin {

namespace {

// Decodes one UTF-8 sequence at `i`; invalid bytes come out as U+FFFD, one byte each.
char32_t nextCodePoint(const std::string& text, std::size_t& i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    std::size_t length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
    if (length == 0 || i + length > text.size()) {
        ++i;
        return 0xFFFD;
    }
    char32_t c = length == 1 ? lead : lead & (0x7F >> length);
    for (std::size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) {
            ++i;
            return 0xFFFD;
        }
        c = (c << 6) | (byte(i + k) & 0x3F);
    }
    i += length;
    return c;
}

// Unicode character classes from the C library's built-in UTF-8 locale.
locale_t unicodeLocale() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(0));
    return locale;
}

bool isSpace(char32_t c) {
    if (c == 0x85 || c == 0x2028 || c == 0x2029) return true;  // line breaks iswspace may not list
    const auto locale = unicodeLocale();
    return locale ? iswspace_l(wint_t(c), locale) != 0 : c == ' ' || (c >= 0x09 && c <= 0x0D);
}

bool isLetterOrDigit(char32_t c) {
    const auto locale = unicodeLocale();
    return locale ? iswalnum_l(wint_t(c), locale) != 0 : (c < 0x80 && std::isalnum(int(c)));
}

// The pieces of `text` between runs of white space.
std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> pieces;
    std::string piece;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t start = i;
        if (isSpace(nextCodePoint(text, i))) {
            if (!piece.empty()) pieces.push_back(std::exchange(piece, {}));
        } else {
            piece.append(text, start, i - start);
        }
    }
    if (!piece.empty()) pieces.push_back(piece);
    return pieces;
}

std::size_t characterCount(const std::string& text) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size(); ++count) nextCodePoint(text, i);
    return count;
}

std::string trimmed(const std::string& text) {
    const auto pieces = words(text);
    std::string joined;
    for (const auto& piece : pieces) joined += (joined.empty() ? "" : " ") + piece;
    return joined;
}

}  // namespace

ContentSearchModel::ContentSearchModel(VersionCatalog& catalog, Clock& clock) : catalog_(catalog), clock_(clock) {}

std::optional<std::string> ContentSearchModel::matchExpression(const std::string& text) {
    std::vector<std::string> kept;
    for (auto piece : words(text)) {
        std::erase(piece, '"');
        bool meaningful = false;
        for (std::size_t i = 0; i < piece.size() && !meaningful;) meaningful = isLetterOrDigit(nextCodePoint(piece, i));
        if (meaningful) kept.push_back(std::move(piece));
    }
    if (kept.empty()) return std::nullopt;
    std::string expression;
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (i) expression += ' ';
        expression += '"' + kept[i] + '"';
    }
    return expression + '*';  // the word being typed already matches
}

std::vector<ContentHitGroup> ContentSearchModel::group(const std::vector<ContentMatch>& rows) {
    std::vector<ContentHitGroup> groups;
    std::map<std::int64_t, std::size_t> indexOfFile;
    for (const auto& row : rows) {
        auto [entry, added] = indexOfFile.try_emplace(row.file.id, groups.size());
        if (added) groups.push_back({row.file, {}});
        groups[entry->second].hits.push_back(row.hit);
    }
    return groups;
}

std::optional<std::string> ContentSearchModel::screen(const std::string& text) {
    const std::string words = trimmed(text);
    if (words.empty()) return "history.search.contents.empty";
    if (characterCount(words) < minimumLength) return "history.search.contents.minLength";
    return std::nullopt;
}

ContentSearchModel::Outcome ContentSearchModel::search(Scope scope, const ContentQuery& query) {
    Outcome outcome;
    outcome.messageKey = query.active ? screen(query.text) : "history.search.contents.empty";
    if (outcome.messageKey) return outcome;
    const std::string text = trimmed(query.text);
    if (!query.folder) return outcome;
    if (scope == Scope::names) {
        outcome.searched = true;
        outcome.files = catalog_.filesByName(*query.folder, VersionCatalog::containsPattern(text));
        if (outcome.files.empty()) outcome.messageKey = "history.search.contents.noMatches";
        return outcome;
    }
    const auto expression = matchExpression(text);
    if (!expression) return outcome;  // nothing searchable: no search, no message
    outcome.searched = true;
    outcome.groups = group(catalog_.searchContents(startMarker, endMarker, *expression, *query.folder, hitLimit));
    if (outcome.groups.empty()) outcome.messageKey = "history.search.contents.noMatches";
    return outcome;
}

std::int64_t ContentSearchModel::pending() {
    std::lock_guard guard(lock_);
    const double now = clock_.now();
    if (!pendingCountedAt_ || now - *pendingCountedAt_ >= pendingRecountSeconds) {
        pending_ = catalog_.digestsToIndexCount();
        pendingCountedAt_ = now;
    }
    return pending_;
}

}  // namespace vosklin
