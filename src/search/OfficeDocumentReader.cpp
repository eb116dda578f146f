#include "search/OfficeDocumentReader.h"

#include <expat.h>

#include <algorithm>
#include <exception>
#include <vector>

#include "search/TextExtractionError.h"
#include "search/ZipArchive.h"

namespace vosklin {

namespace {

// Expat reports names as "<namespace URI><separator><local name>", so a
// document may bind any prefix it likes.
constexpr char separator = ' ';
constexpr std::string_view wordNamespaces[] = {
    "http://schemas.openxmlformats.org/wordprocessingml/2006/main",
    "http://purl.oclc.org/ooxml/wordprocessingml/main",
};
constexpr std::string_view compatibilityNamespace = "http://schemas.openxmlformats.org/markup-compatibility/2006";
constexpr std::string_view textNamespace = "urn:oasis:names:tc:opendocument:xmlns:text:1.0";
constexpr std::string_view officeNamespace = "urn:oasis:names:tc:opendocument:xmlns:office:1.0";
// More spaces than this from one text:s add nothing to a search.
constexpr long spaceRunLimit = 1024;

enum class Kind { docx, odt };

enum class Tag {
    other, wordParagraph, wordRun, wordText, wordTab, wordBreak, wordCarriageReturn, fallback,
    paragraph, tab, lineBreak, spaces, annotation,
};

bool inNamespace(std::string_view name, std::string_view space, std::string_view& local) {
    if (name.size() <= space.size() || !name.starts_with(space) || name[space.size()] != separator) return false;
    local = name.substr(space.size() + 1);
    return true;
}

Tag classify(Kind kind, std::string_view name) {
    std::string_view local;
    if (kind == Kind::docx) {
        for (auto space : wordNamespaces) {
            if (!inNamespace(name, space, local)) continue;
            if (local == "p") return Tag::wordParagraph;
            if (local == "r") return Tag::wordRun;
            if (local == "t") return Tag::wordText;
            if (local == "tab") return Tag::wordTab;
            if (local == "br") return Tag::wordBreak;
            if (local == "cr") return Tag::wordCarriageReturn;
            return Tag::other;
        }
        if (inNamespace(name, compatibilityNamespace, local) && local == "Fallback") return Tag::fallback;
        return Tag::other;
    }
    if (inNamespace(name, textNamespace, local)) {
        if (local == "p" || local == "h") return Tag::paragraph;
        if (local == "tab") return Tag::tab;
        if (local == "line-break") return Tag::lineBreak;
        if (local == "s") return Tag::spaces;
        return Tag::other;
    }
    if (inNamespace(name, officeNamespace, local) && local == "annotation") return Tag::annotation;
    return Tag::other;
}

// text:c of a text:s: how many spaces, 1 when absent or not a positive number.
long spaceCount(const XML_Char** attributes) {
    for (; attributes[0]; attributes += 2) {
        std::string_view local;
        if (!inNamespace(attributes[0], textNamespace, local) || local != "c") continue;
        long count = 0;
        for (const char* digit = attributes[1]; *digit; ++digit) {
            if (*digit < '0' || *digit > '9') return 1;
            count = std::min(count * 10 + (*digit - '0'), spaceRunLimit);
        }
        return count > 0 ? count : 1;
    }
    return 1;
}

// Collects the text of one document from expat's events. Expat is C: nothing
// may be thrown through it, so a handler that fails records why and stops
// the parser, and `feed` rethrows once expat has returned.
class TextCollector {
public:
    TextCollector(Kind kind, std::uint64_t limit) : kind_(kind), limit_(limit) {
        parser_ = XML_ParserCreateNS(nullptr, separator);
        if (!parser_) throw std::bad_alloc();
        XML_SetUserData(parser_, this);
        XML_SetElementHandler(parser_, &TextCollector::started, &TextCollector::ended);
        XML_SetCharacterDataHandler(parser_, &TextCollector::characters);
        XML_SetStartDoctypeDeclHandler(parser_, &TextCollector::doctype);
    }
    ~TextCollector() { XML_ParserFree(parser_); }
    TextCollector(const TextCollector&) = delete;
    TextCollector& operator=(const TextCollector&) = delete;

    void feed(std::string_view chunk, bool last) {
        const auto status = XML_Parse(parser_, chunk.data(), int(chunk.size()), last ? XML_TRUE : XML_FALSE);
        if (failure_) std::rethrow_exception(failure_);
        if (status != XML_STATUS_OK)
            throw TextExtractionError(std::string("the document's XML does not parse: ") +
                                      XML_ErrorString(XML_GetErrorCode(parser_)));
    }

    std::string take() { return std::move(text_); }

private:
    template <class Body>
    static void guarded(void* self, Body&& body) {
        auto* collector = static_cast<TextCollector*>(self);
        try {
            body(*collector);
        } catch (...) {
            collector->failure_ = std::current_exception();
            XML_StopParser(collector->parser_, XML_FALSE);
        }
    }

    static void started(void* self, const XML_Char* name, const XML_Char** attributes) {
        guarded(self, [&](TextCollector& c) { c.start(name, attributes); });
    }
    static void ended(void* self, const XML_Char*) {
        guarded(self, [&](TextCollector& c) { c.end(); });
    }
    static void characters(void* self, const XML_Char* data, int length) {
        guarded(self, [&](TextCollector& c) { c.characterData(std::string_view(data, std::size_t(length))); });
    }
    static void doctype(void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
        guarded(self, [](TextCollector&) -> void {
            throw TextExtractionError("the document's XML declares a document type");
        });
    }

    bool skipping() const { return skipFrom_ != noSkip; }
    bool parentIsRun() const { return stack_.size() >= 2 && stack_[stack_.size() - 2] == Tag::wordRun; }

    void start(std::string_view name, const XML_Char** attributes) {
        if (stack_.size() >= OfficeDocumentReader::depthLimit)
            throw TextExtractionError("the document's XML nests too deeply");
        const Tag tag = skipping() ? Tag::other : classify(kind_, name);
        stack_.push_back(tag);
        if (skipping()) return;
        switch (tag) {
        case Tag::fallback:
        case Tag::annotation: skipFrom_ = stack_.size(); break;
        case Tag::wordTab:
            if (parentIsRun()) put("\t");
            break;
        case Tag::wordBreak:
        case Tag::wordCarriageReturn:
            if (parentIsRun()) put("\n");
            break;
        case Tag::paragraph: ++paragraphs_; break;
        case Tag::tab:
            if (paragraphs_ > 0) putContent("\t");
            break;
        case Tag::lineBreak:
            if (paragraphs_ > 0) endLine();
            break;
        case Tag::spaces:
            if (paragraphs_ > 0) putContent(std::string(std::size_t(spaceCount(attributes)), ' '));
            break;
        default: break;
        }
    }

    void end() {
        const Tag tag = stack_.back();
        const bool wasSkipping = skipping();
        if (skipFrom_ == stack_.size()) skipFrom_ = noSkip;
        stack_.pop_back();
        if (wasSkipping) return;
        if (tag == Tag::wordParagraph) put("\n");
        if (tag == Tag::paragraph) {
            --paragraphs_;
            endLine();
        }
    }

    void characterData(std::string_view data) {
        if (skipping() || stack_.empty()) return;
        if (kind_ == Kind::docx) {
            if (stack_.back() == Tag::wordText) put(data);
            return;
        }
        if (paragraphs_ == 0) return;
        // Runs of white space in a paragraph are one space, and none at a line's ends.
        std::size_t at = 0;
        while (at < data.size()) {
            const std::size_t content = data.find_first_not_of(" \t\r\n", at);
            if (content != at) {
                if (!lineStart_) pendingSpace_ = true;
                if (content == std::string_view::npos) break;
            }
            std::size_t blank = data.find_first_of(" \t\r\n", content);
            if (blank == std::string_view::npos) blank = data.size();
            putContent(data.substr(content, blank - content));
            at = blank;
        }
    }

    void putContent(std::string_view content) {
        if (pendingSpace_) put(" ");
        pendingSpace_ = lineStart_ = false;
        put(content);
    }

    void endLine() {
        pendingSpace_ = false;
        lineStart_ = true;
        put("\n");
    }

    // Appends as much as the limit allows, never splitting a character.
    void put(std::string_view piece) {
        if (full_) return;
        if (text_.size() + piece.size() > limit_) {
            std::size_t room = std::size_t(limit_ - text_.size());
            while (room > 0 && (static_cast<unsigned char>(piece[room]) & 0xC0) == 0x80) --room;
            piece = piece.substr(0, room);
            full_ = true;  // nothing after the cut goes in, not even a shorter piece
        }
        text_.append(piece);
    }

    static constexpr std::size_t noSkip = ~std::size_t(0);

    XML_Parser parser_;
    Kind kind_;
    std::uint64_t limit_;
    std::exception_ptr failure_;
    std::vector<Tag> stack_;
    std::size_t skipFrom_ = noSkip;  // the depth of the element whose contents are skipped
    int paragraphs_ = 0;             // open text:p and text:h
    bool lineStart_ = true;
    bool pendingSpace_ = false;
    bool full_ = false;
    std::string text_;
};

std::string read(std::string_view bytes, const std::string& entry, Kind kind, std::uint64_t limit) {
    ZipArchive archive(bytes, limit);
    TextCollector collector(kind, limit);
    archive.stream(entry, [&](std::string_view chunk) { collector.feed(chunk, false); });
    collector.feed({}, true);
    return collector.take();
}

}  // namespace

std::string OfficeDocumentReader::docxText(std::string_view bytes, std::uint64_t limit) {
    return read(bytes, "word/document.xml", Kind::docx, limit);
}

std::string OfficeDocumentReader::odtText(std::string_view bytes, std::uint64_t limit) {
    return read(bytes, "content.xml", Kind::odt, limit);
}

}  // namespace vosklin
