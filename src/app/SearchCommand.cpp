#include "app/SearchCommand.h"

#include <unistd.h>

#include "app/JsonRecords.h"
#include "app/TerminalOutput.h"
#include "platform/DisplayName.h"
#include "platform/Instant.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/StringTable.h"
#include "search/ContentSearchModel.h"

namespace vosklin {

SearchCommand::SearchCommand(AppContext& context, std::ostream& out, std::ostream& err, int outFd)
    : context_(context), out_(out), err_(err), terminal_(::isatty(outFd) == 1) {}

std::string SearchCommand::shownSnippet(const std::string& snippet) const {
    const std::string text = displayableUtf8(snippet);
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = std::max<std::size_t>(1, validSequenceLength(text, at));
        const auto lead = static_cast<unsigned char>(text[at]);
        const bool c1 = lead == 0xC2 && length == 2 && static_cast<unsigned char>(text[at + 1]) <= 0x9F;
        if (text[at] == ContentSearchModel::startMarker[0]) shown += terminal_ ? "\033[1m" : "[";
        else if (text[at] == ContentSearchModel::endMarker[0]) shown += terminal_ ? "\033[0m" : "]";
        else if (lead < 0x20 || lead == 0x7F || c1) shown += ' ';  // never a raw control to the terminal
        else shown.append(text, at, length);
        at += length;
    }
    return shown;
}

int SearchCommand::run(const std::string& text, const std::optional<std::string>& folderName, bool names, bool json) {
    std::vector<WatchedFolder> folders;
    if (folderName) folders.push_back(context_.folders().require(*folderName));
    else folders = context_.folders().folders();
    const auto scope = names ? ContentSearchModel::Scope::names : ContentSearchModel::Scope::contents;

    nlohmann::json result = {{"scope", ContentSearchModel::scopeName(scope)}, {"groups", nlohmann::json::array()}};
    std::optional<std::string> refusal;
    std::size_t found = 0;
    std::int64_t pending = 0;
    if (context_.storeExists()) {
        ContentSearchModel model(context_.readCatalog(), context_.clock());
        for (const auto& folder : folders) {
            const auto outcome = model.search(scope, {text, true, folder.id});
            if (!outcome.searched) {
                refusal = outcome.messageKey;
                break;
            }
            for (const auto& group : outcome.groups) {
                ++found;
                const std::string path = joinPath(folder.path, group.file.relativePath);
                result["groups"].push_back(toJson(group, folder.path));
                if (json) continue;
                out_ << (terminal_ ? "\033[1m" : "") << DisplayName::of(path) << (terminal_ ? "\033[0m" : "")
                     << (group.file.deletedAt ? "  (deleted)" : "") << "\n";
                for (const auto& hit : group.hits)
                    out_ << "  " << hit.versionID << "  " << formatLocalTime(hit.capturedAt) << "  "
                         << shownSnippet(hit.snippet) << "\n";
            }
            for (const auto& file : outcome.files) {
                ++found;
                const std::string path = joinPath(folder.path, file.file.relativePath);
                result["groups"].push_back(toJson(file, folder.path));
                if (json) continue;
                out_ << DisplayName::of(path) << (file.file.deletedAt ? "  (deleted)" : "") << "  "
                     << StringTable::count("history.delete.versions %lld", file.versionCount) << ", last "
                     << formatLocalTime(file.lastCapturedAt) << "\n";
            }
        }
        if (!refusal && !names) pending = model.pending();
    } else {
        refusal = ContentSearchModel::screen(text);
    }
    result["pending"] = pending;
    if (refusal) result["message"] = StringTable::text(*refusal);
    else if (found == 0) result["message"] = StringTable::text("history.search.contents.noMatches");

    if (json) {
        out_ << result.dump(2) << "\n";
    } else if (refusal) {
        err_ << "vosklin: " << StringTable::text(*refusal) << "\n";
    } else if (found == 0) {
        out_ << StringTable::text("history.search.contents.noMatches") << "\n";
        if (pending > 0) out_ << StringTable::text("history.search.contents.pending") << "\n";
    }
    if (!json && !refusal && pending > 0)
        err_ << StringTable::count("history.search.contents.indexing %lld", pending) << "\n";
    if (refusal) return 2;
    return found > 0 ? 0 : 1;
}

}  // namespace vosklin
