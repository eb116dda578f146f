#include "platform/StringTable.h"

#include <map>

namespace vosklin {
namespace {

struct Entry {
    const char* other;
    const char* one = nullptr;  // when the number is 1
};

const std::map<std::string, Entry>& table() {
    static const std::map<std::string, Entry> entries = {
        {"rewind.moment.wentBack %@", {"Went back to %@"}},
        {"rewind.moment.beforeRewind", {"Before going back"}},
        {"rewind.moment.batch %lld", {"%lld files together", "1 file"}},
        {"rewind.moment.files %lld", {"%lld files changed", "1 file changed"}},
        {"rewind.moment.unknown", {"Changes"}},
        {"rewind.moment.more %lld", {"and %lld more"}},
        {"rewind.moment.current.help", {"The folder as it is now"}},
        {"rewind.change.added", {"Added"}},
        {"rewind.change.edited", {"Edited"}},
        {"rewind.change.replaced", {"Replaced"}},
        {"rewind.change.deleted", {"Deleted"}},
        {"rewind.change.renamed", {"Renamed"}},
        {"rewind.change.renamed %@ %@", {"Renamed %@ to %@"}},
        {"restore.copy.suffix", {"restored"}},
        {"history.restore.error.blocked", {"Vosklin will not write there: the path leaves the watched folders."}},
        {"history.restore.error.failed", {"The version could not be restored."}},
        {"history.restore.error.missing", {"That version is no longer in the history."}},
        {"history.restore.error.payloadGone", {"The stored copy of that version is gone."}},
        {"history.restore.error.payloadOutsideStore", {"Vosklin will not read that version: its stored copy is recorded outside the store."}},
        {"history.restore.error.noPrevious %@", {"There is no earlier version of %@."}},
        {"history.restore.error.folderGone", {"The watched folder is no longer there."}},
        {"history.restore.done %@", {"Restored %@"}},
        {"history.delete.sheet", {"Delete history"}},
        {"history.delete.sheet.title.version", {"Delete these versions from the history?", "Delete this version from the history?"}},
        {"history.delete.sheet.title.file", {"Delete the file's whole history?"}},
        {"history.delete.sheet.amount %@ %@", {"%@ will be deleted, giving back %@ of disk."}},
        {"history.delete.sheet.irreversible", {"This cannot be undone."}},
        {"history.delete.sheet.fileSafe", {"The file itself is not touched."}},
        {"history.delete.sheet.warn.undo", {"It includes a copy kept so that a restore or a rewind can be undone."}},
        {"history.delete.sheet.warn.starred", {"It includes starred versions."}},
        {"history.delete.sheet.warn.liveFile", {"These are all the versions of a file that still exists: its history starts again at its next change."}},
        {"history.delete.sheet.warn.lastCopy", {"This is the last copy of a deleted file: it will be gone for good."}},
        {"history.delete.sheet.warn.namedMoment %@", {"The named moment \u201c%@\u201d will have nothing left under it and will be removed."}},
        {"history.delete.sheet.warn.namedMoments %lld %@", {"%lld named moments will have nothing left under them and will be removed: %@."}},
        {"history.delete.sheet.confirm", {"Delete"}},
        {"history.delete.sheet.action", {"Delete"}},
        {"history.delete.error", {"The history could not be deleted."}},
        {"history.delete.versions %lld", {"%lld versions", "1 version"}},
        {"history.search.scope.names", {"Names"}},
        {"history.search.scope.contents", {"Contents"}},
        {"history.search.contents.empty", {"Type a word to search for in every version's text."}},
        {"history.search.contents.minLength", {"Type at least 2 characters to search."}},
        {"history.search.contents.noMatches", {"No version contains that."}},
        {"history.search.contents.pending", {"Some versions' texts have not been read yet: they may match once they are."}},
        {"history.search.contents.indexing %lld", {"%lld texts are still waiting to be read for search.", "1 text is still waiting to be read for search."}},
        {"settings.storage.keepFor", {"Keep history for"}},
        {"settings.storage.keepFor.help", {"Older versions are thinned out: all of the last day, one per hour for a week, one per day for a month, one per week after that. Starred versions, named moments and the last copy of a deleted file are always kept."}},
        {"settings.storage.keepFor.month", {"A month"}},
        {"settings.storage.keepFor.quarter", {"Three months"}},
        {"settings.storage.keepFor.halfYear", {"Six months"}},
        {"settings.storage.keepFor.year", {"A year"}},
        {"settings.storage.keepFor.forever", {"Forever"}},
        {"settings.storage.budget.automatic %@", {"Automatic (%@)"}},
        {"settings.storage.budget.unlimited", {"Unlimited"}},
        {"settings.storage.overBudget", {"Over its budget: everything that may be thinned has been; the rest is protected or less than a day old."}},
        {"settings.storage.measuring", {"Measuring\u2026"}},
        {"rewind.sheet.title", {"Rewind the folder?"}},
        {"rewind.sheet.subtitle %@ %@", {"%@ goes back to %@."}},
        {"rewind.sheet.revert %lld", {"%lld files are put back as they were", "1 file is put back as it was"}},
        {"rewind.sheet.restore %lld", {"%lld deleted files come back", "1 deleted file comes back"}},
        {"rewind.sheet.remove %lld", {"%lld files added since are removed", "1 file added since is removed"}},
        {"rewind.sheet.reversible", {"You can undo this: the folder as it is now stays on the timeline."}},
        {"rewind.sheet.confirm", {"Rewind"}},
        {"rewind.banner.done %lld %@", {"%lld changes made: the folder is as it was at %@.", "1 change made: the folder is as it was at %@."}},
        {"rewind.banner.failed %lld", {"%lld paths could not be written (see the log).", "1 path could not be written (see the log)."}},
        {"rewind.banner.undo", {"Undo"}},
        {"rewind.error.nothingToDo", {"Nothing to do: the folder is already as it was then."}},
        {"rewind.error.folderUnreadable", {"The folder cannot be read."}},
        {"rewind.error.payloadGone", {"A stored copy this rewind needs is gone."}},
        {"rewind.error.payloadOutsideStore", {"Nothing was changed: a stored copy this rewind needs is recorded outside the store."}},
        {"rewind.error.blocked", {"Vosklin will not write there: a path leaves the watched folder."}},
        {"rewind.error.captureFailed", {"Nothing was changed: what the rewind would replace could not be kept first."}},
        {"compare.text.notText", {"Not text: these versions cannot be compared line by line."}},
        {"compare.text.identical", {"The two versions are identical."}},
        {"compare.text.tooLarge", {"Too large to compare line by line; compared position by position."}},
        {"compare.text.summary %lld %lld", {"%lld lines differ in the newer version, %lld in the older."}},
        {"compare.text.regions %lld", {"%lld changed regions", "1 changed region"}},
        // The window: its frame, navigation and keys.
        {"window.title", {"Vosklin"}},
        {"window.nav.home", {"Folders"}},
        {"window.nav.search", {"Search"}},
        {"window.nav.settings", {"Settings"}},
        {"window.nav.findFile", {"Find a file"}},
        {"window.keys.findFile", {"Find a file"}},
        {"window.keys.home", {"Go to the folders"}},
        {"window.keys.settings", {"Go to the settings"}},
        {"window.error.title", {"Something went wrong"}},
        {"window.error.session", {"The window's session has ended. Run 'vosklin ui' for a new one."}},
        {"window.banner.dismiss", {"Dismiss"}},
        {"window.sheet.cancel", {"Cancel"}},
        // The window: folders, onboarding, settings, search and the file picker.
        // The window: timeline, files, versions, sheets and comparisons.
    };
    return entries;
}

std::string fill(std::string pattern, const std::vector<std::string>& arguments) {
    std::size_t next = 0;
    for (const auto& argument : arguments) {
        std::size_t at = std::string::npos;
        std::size_t length = 0;
        for (const char* placeholder : {"%@", "%lld"}) {
            std::size_t found = pattern.find(placeholder, next);
            if (found < at) {
                at = found;
                length = std::char_traits<char>::length(placeholder);
            }
        }
        if (at == std::string::npos) break;
        pattern.replace(at, length, argument);
        next = at + argument.size();
    }
    return pattern;
}

}  // namespace

std::string StringTable::text(const std::string& key, const std::vector<std::string>& arguments) {
    auto found = table().find(key);
    if (found == table().end()) return key;
    return fill(found->second.other, arguments);
}

std::string StringTable::count(const std::string& key, long long number, const std::vector<std::string>& more) {
    auto found = table().find(key);
    if (found == table().end()) return key;
    std::vector<std::string> arguments = {std::to_string(number)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const char* pattern = number == 1 && found->second.one ? found->second.one : found->second.other;
    return fill(pattern, arguments);
}

std::vector<StringTable::Text> StringTable::all() {
    std::vector<Text> texts;
    for (const auto& [key, entry] : table())
        texts.push_back({key, entry.other, entry.one ? std::optional<std::string>(entry.one) : std::nullopt});
    return texts;
}

}  // namespace vosklin
