#include "search/RtfReader.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <map>
#include <vector>

#include "platform/Utf8.h"
#include "search/TextExtractionError.h"

namespace vosklin {
namespace {

constexpr std::size_t maxDepth = 256;            // the root group counts; real documents stay under 30
constexpr std::size_t maxFonts = 4096;           // font table entries remembered; later ones use the document's code page
constexpr std::size_t maxConverters = 16;        // distinct code pages converted per document; later ones read as 1252
constexpr std::int64_t maxParameter = INT32_MAX;  // a longer parameter saturates
constexpr std::size_t outputFactor = 3;          // text bytes per input byte, at most (a raw byte can become U+FFFD)
constexpr int defaultCodePage = 1252;
constexpr char32_t replacement = 0xFFFD;

// How the text of the current group is treated.
enum class Destination : std::uint8_t {
    body,       // text of the document
    skipped,    // a destination holding no body text; only its structure is followed
    fontTable,  // skipped, but the fonts' character sets are remembered
    object,     // an embedded object: skipped except its nested \result group
};

// What a group restores when it closes.
struct GroupState {
    Destination destination = Destination::body;
    bool openedInObject = false;  // the group is a direct child of an object group
    int unicodeFallback = 1;      // \ucN: characters after \uN that stand in for it
    int font = -1;                // \fN; -1 is the document's default font
};

// Code page of a font's \fcharsetN; 0 means the document's own.
int codePageOfCharset(int charset) {
    switch (charset) {
        case 0: return 1252;
        case 77: return 10000;
        case 128: return 932;
        case 129: return 949;
        case 130: return 1361;
        case 134: return 936;
        case 136: return 950;
        case 161: return 1253;
        case 162: return 1254;
        case 163: return 1258;
        case 177: return 1255;
        case 178: return 1256;
        case 186: return 1257;
        case 204: return 1251;
        case 222: return 874;
        case 238: return 1250;
        case 254: return 437;
        case 255: return 850;
        default: return 0;  // 1 (default), 2 (symbol) and unknown sets
    }
}

// iconv converters to UTF-8, opened on first use within one document and
// closed with it (an iconv_t is not safe to share between threads).
class CodePages {
public:
    CodePages() = default;
    CodePages(const CodePages&) = delete;
    CodePages& operator=(const CodePages&) = delete;
    ~CodePages() {
        for (auto& [codePage, converter] : converters_)
            if (converter != invalid()) iconv_close(converter);
    }

    // Appends `bytes`, read in `codePage`, as UTF-8; a byte sequence the code
    // page does not define becomes U+FFFD.
    void convert(int codePage, std::string_view bytes, std::string& out) {
        iconv_t converter = converterFor(codePage);
        if (converter == invalid()) converter = converterFor(defaultCodePage);
        if (converter == invalid()) {  // no iconv module at all: read the bytes as Latin-1
            for (unsigned char byte : bytes) appendUtf8(out, byte);
            return;
        }
        iconv(converter, nullptr, nullptr, nullptr, nullptr);
        char* in = const_cast<char*>(bytes.data());
        std::size_t inLeft = bytes.size();
        char buffer[4096];
        for (;;) {
            char* o = buffer;
            std::size_t oLeft = sizeof buffer;
            // A null input ends the sequence: converters that hold back a base letter for a combining mark let it go.
            const std::size_t result =
                inLeft > 0 ? iconv(converter, &in, &inLeft, &o, &oLeft) : iconv(converter, nullptr, nullptr, &o, &oLeft);
            const int error = result == std::size_t(-1) ? errno : 0;
            const bool progressed = o != buffer;
            out.append(buffer, std::size_t(o - buffer));
            if (error == 0) {
                if (inLeft == 0 && !progressed) return;
                continue;
            }
            if (error == E2BIG && progressed) continue;
            appendUtf8(out, replacement);
            if (error == EILSEQ && inLeft > 0) {  // an undefined byte: skip it and go on
                ++in;
                --inLeft;
            } else {  // a sequence cut short by the end, or anything else: nothing more to read
                inLeft = 0;
            }
            iconv(converter, nullptr, nullptr, nullptr, nullptr);
        }
    }

private:
    static iconv_t invalid() { return reinterpret_cast<iconv_t>(-1); }

    static std::string nameOf(int codePage) {
        if (codePage == 10000) return "MACINTOSH";
        if (codePage == 65001) return "UTF-8";
        return "CP" + std::to_string(codePage);
    }

    iconv_t converterFor(int codePage) {
        if (auto found = converters_.find(codePage); found != converters_.end()) return found->second;
        if (codePage <= 0 || codePage > 65535) return invalid();
        if (converters_.size() >= maxConverters && codePage != defaultCodePage) return invalid();
        iconv_t converter = iconv_open("UTF-8", nameOf(codePage).c_str());
        converters_.emplace(codePage, converter);
        return converter;
    }

    std::map<int, iconv_t> converters_;
};

bool isLetter(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }

int hexValue(unsigned char c) {
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Words that open a destination holding no body text.
bool isSkippedDestination(std::string_view word) {
    static constexpr std::string_view words[] = {
        "bkmkend",    "bkmkstart",   "colorschememapping", "colortbl",  "datastore", "filetbl",
        "fldinst",    "generator",   "info",               "latentstyles", "listoverridetable", "listtable",
        "nonshppict", "objdata",     "pgdsctbl",           "pict",      "pntxta",    "pntxtb",
        "revtbl",     "rsidtbl",     "stylesheet",         "tc",        "template",  "themedata",
        "txe",        "userprops",   "xe",                 "xmlnstbl",
    };
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

class Reader {
public:
    explicit Reader(std::string_view input) : in_(input), limit_(outputFactor * input.size()) {}

    std::string read() {
        at_ = start();
        while (at_ < in_.size()) {
            const auto c = static_cast<unsigned char>(in_[at_++]);
            switch (c) {
                case '{': open(); break;
                case '}':
                    if (!close()) return finish();  // the document's own group ended: what follows is not read
                    break;
                case '\\': control(); break;
                case '\r':
                case '\n': break;  // line breaks in the file are not text
                default:
                    if (isBody() && !fallbackSkipped()) textByte(c);
            }
        }
        throw TextExtractionError("the RTF document ends inside a group");
    }

private:
    // Where the document's group opens, after optional white space and a byte-order mark.
    std::size_t start() const {
        std::size_t at = 0;
        if (in_.substr(0, 3) == "\xEF\xBB\xBF") at = 3;
        while (at < in_.size() && (in_[at] == ' ' || in_[at] == '\t' || in_[at] == '\r' || in_[at] == '\n')) ++at;
        if (in_.substr(at, 5) != "{\\rtf") throw TextExtractionError("not an RTF document");
        return at;
    }

    void open() {
        fallbackLeft_ = 0;
        if (stack_.size() >= maxDepth) throw TextExtractionError("RTF groups nested too deeply");
        stack_.push_back(state_);
        state_.openedInObject = state_.destination == Destination::object;
        if (state_.openedInObject) state_.destination = Destination::skipped;
    }

    // False when the outermost group closed.
    bool close() {
        fallbackLeft_ = 0;
        if (stack_.empty()) return false;
        state_ = stack_.back();
        stack_.pop_back();
        return !stack_.empty();
    }

    bool isBody() const { return state_.destination == Destination::body; }

    // True when this character stands in for the \uN before it and is dropped.
    bool fallbackSkipped() {
        if (fallbackLeft_ == 0) return false;
        --fallbackLeft_;
        return true;
    }

    void control() {
        if (at_ >= in_.size()) return;
        const auto c = static_cast<unsigned char>(in_[at_]);
        if (!isLetter(c)) {
            ++at_;
            symbol(c);
            return;
        }
        const std::size_t wordStart = at_;
        while (at_ < in_.size() && isLetter(static_cast<unsigned char>(in_[at_]))) ++at_;
        const std::string_view word = in_.substr(wordStart, at_ - wordStart);
        bool negative = false;
        if (at_ + 1 < in_.size() && in_[at_] == '-' && isDigit(static_cast<unsigned char>(in_[at_ + 1]))) {
            negative = true;
            ++at_;
        }
        bool hasParameter = false;
        std::int64_t value = 0;
        while (at_ < in_.size() && isDigit(static_cast<unsigned char>(in_[at_]))) {
            value = std::min(value * 10 + (in_[at_++] - '0'), maxParameter);
            hasParameter = true;
        }
        if (at_ < in_.size() && in_[at_] == ' ') ++at_;  // the delimiter belongs to the word
        controlWord(word, hasParameter, int(negative ? -value : value));
    }

    void symbol(unsigned char c) {
        if (c == '\'') {
            int byte = -1;
            if (at_ + 1 < in_.size()) {
                const int high = hexValue(static_cast<unsigned char>(in_[at_]));
                const int low = hexValue(static_cast<unsigned char>(in_[at_ + 1]));
                if (high >= 0 && low >= 0) {
                    byte = high * 16 + low;
                    at_ += 2;
                }
            }
            if (isBody() && !fallbackSkipped() && byte >= 0) codePageByte(char(byte));
            return;
        }
        if (c == '*') {  // an ignorable destination: whatever it is, it holds no text we read
            if (isBody() || state_.destination == Destination::fontTable) state_.destination = Destination::skipped;
            return;
        }
        if (!isBody() || fallbackSkipped()) return;
        switch (c) {
            case '\\':
            case '{':
            case '}': textByte(c); break;
            case '~': codePoint(0x00A0); break;
            case '_': codePoint(0x2011); break;
            case '\r':
            case '\n': codePoint('\n'); break;
            default: break;  // \- (optional hyphen) and the rest show nothing
        }
    }

    void controlWord(std::string_view word, bool hasParameter, int parameter) {
        if (word == "bin") {  // binary data of the given length follows, in any destination
            const std::size_t length = hasParameter && parameter > 0 ? std::size_t(parameter) : 0;
            at_ += std::min(length, in_.size() - at_);
            if (isBody()) fallbackSkipped();
            return;
        }
        if (!isBody()) {
            skippedWord(word, hasParameter, parameter);
            return;
        }
        if (fallbackSkipped()) return;
        if (word == "par" || word == "line" || word == "sect" || word == "page" || word == "row" || word == "nestrow")
            codePoint('\n');
        else if (word == "tab" || word == "cell" || word == "nestcell")
            codePoint('\t');
        else if (word == "u" && hasParameter) {
            unicode(parameter);
            fallbackLeft_ = state_.unicodeFallback;
        } else if (word == "uc" && hasParameter)
            state_.unicodeFallback = std::max(parameter, 0);
        else if (word == "f" && hasParameter)
            state_.font = parameter;
        else if (word == "plain")
            state_.font = -1;
        else if (word == "deff" && hasParameter)
            defaultFont_ = parameter;
        else if (word == "ansi")
            documentCodePage_ = 1252;
        else if (word == "ansicpg" && hasParameter)
            documentCodePage_ = parameter;
        else if (word == "mac")
            documentCodePage_ = 10000;
        else if (word == "pc")
            documentCodePage_ = 437;
        else if (word == "pca")
            documentCodePage_ = 850;
        else if (word == "fonttbl")
            state_.destination = Destination::fontTable;
        else if (word == "object")
            state_.destination = Destination::object;
        else if (isSkippedDestination(word))
            state_.destination = Destination::skipped;
        else if (word == "emdash")
            codePoint(0x2014);
        else if (word == "endash")
            codePoint(0x2013);
        else if (word == "emspace")
            codePoint(0x2003);
        else if (word == "enspace")
            codePoint(0x2002);
        else if (word == "lquote")
            codePoint(0x2018);
        else if (word == "rquote")
            codePoint(0x2019);
        else if (word == "ldblquote")
            codePoint(0x201C);
        else if (word == "rdblquote")
            codePoint(0x201D);
        else if (word == "bullet")
            codePoint(0x2022);
    }

    // Inside a destination that is not body text only the fonts and an object's shown result matter.
    void skippedWord(std::string_view word, bool hasParameter, int parameter) {
        if (state_.openedInObject && word == "result") {
            state_.destination = Destination::body;
            return;
        }
        if (state_.destination != Destination::fontTable || !hasParameter) return;
        if (word == "f") {
            definedFont_ = parameter;
        } else if (word == "fcharset" || word == "cpg") {
            const int codePage = word == "cpg" ? parameter : codePageOfCharset(parameter);
            if (fonts_.size() < maxFonts || fonts_.count(definedFont_)) fonts_[definedFont_] = codePage;
        }
    }

    int codePage() const {
        const auto found = fonts_.find(state_.font < 0 ? defaultFont_ : state_.font);
        return found != fonts_.end() && found->second > 0 ? found->second : documentCodePage_;
    }

    // A byte of the text itself: ASCII goes out as it is unless it may finish a
    // double-byte character begun by the bytes waiting for conversion.
    void textByte(unsigned char c) {
        if (c < 0x20 && c != '\t') return;  // control characters are not text
        if (c >= 0x80 || !pending_.empty()) {
            codePageByte(char(c));
        } else {
            settleSurrogate();
            text_ += char(c);
            checkSize();
        }
    }

    // Bytes in the code page wait so that a run is converted at once and a
    // double-byte character split over two \'hh is read whole.
    void codePageByte(char byte) {
        settleSurrogate();
        const int page = codePage();
        if (!pending_.empty() && page != pendingCodePage_) flushBytes();
        pendingCodePage_ = page;
        pending_ += byte;
    }

    void flushBytes() {
        if (pending_.empty()) return;
        codePages_.convert(pendingCodePage_, pending_, text_);
        pending_.clear();
        checkSize();
    }

    // \uN: a signed 16-bit code unit; surrogate halves are paired, an unpaired one is U+FFFD.
    void unicode(int parameter) {
        flushBytes();
        if (parameter < 0) parameter += 65536;
        if (parameter < 0 || parameter > 0x10FFFF) {
            codePoint(replacement);
            return;
        }
        const auto unit = char32_t(parameter);
        if (highSurrogate_ != 0 && unit >= 0xDC00 && unit <= 0xDFFF) {
            const char32_t combined = 0x10000 + ((highSurrogate_ - 0xD800) << 10) + (unit - 0xDC00);
            highSurrogate_ = 0;
            codePoint(combined);
        } else if (unit >= 0xD800 && unit <= 0xDBFF) {
            settleSurrogate();
            highSurrogate_ = unit;
        } else {
            codePoint(unit >= 0xDC00 && unit <= 0xDFFF ? replacement : unit);
        }
    }

    void settleSurrogate() {
        if (highSurrogate_ == 0) return;
        highSurrogate_ = 0;
        appendUtf8(text_, replacement);
    }

    void codePoint(char32_t u) {
        flushBytes();
        settleSurrogate();
        if (u < 0x20 && u != '\t' && u != '\n') return;  // other control characters are not text
        appendUtf8(text_, u);
        checkSize();
    }

    // Holds by construction (no token yields more than three bytes per byte it
    // spans); checked so that a mistake costs a failed document, not memory.
    void checkSize() const {
        if (text_.size() > limit_) throw TextExtractionError("RTF text larger than its document allows");
    }

    std::string finish() {
        flushBytes();
        settleSurrogate();
        checkSize();
        return std::move(text_);
    }

    std::string_view in_;
    std::size_t at_ = 0;
    const std::size_t limit_;
    std::vector<GroupState> stack_;
    GroupState state_;
    int fallbackLeft_ = 0;
    int documentCodePage_ = defaultCodePage;
    int defaultFont_ = 0;
    int definedFont_ = 0;
    std::map<int, int> fonts_;  // font number -> code page (0: the document's)
    std::string pending_;
    int pendingCodePage_ = defaultCodePage;
    char32_t highSurrogate_ = 0;
    CodePages codePages_;
    std::string text_;
};

}  // namespace

std::string RtfReader::text(std::string_view bytes) { return Reader(bytes).read(); }

}  // namespace vosklin
