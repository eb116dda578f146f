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
        {"rewind.banner.dismiss", {"Dismiss"}},
        {"history.restore.reveal", {"Show the file"}},
        {"history.restore.dismiss", {"Dismiss"}},
        {"window.timeline.tab", {"Timeline"}},
        {"window.timeline.tabs", {"Folder views"}},
        {"window.timeline.title %@", {"%@: timeline"}},
        {"window.timeline.session %@ %@", {"Session from %@ to %@"}},
        {"window.timeline.changes", {"Changes"}},
        {"window.timeline.actions", {"Actions for this moment"}},
        {"window.timeline.name", {"Name\u2026"}},
        {"window.timeline.rename", {"Rename\u2026"}},
        {"window.timeline.unname", {"Remove the name"}},
        {"window.timeline.rewind", {"Rewind to here\u2026"}},
        {"window.timeline.export", {"Export\u2026"}},
        {"window.timeline.filesAt", {"Files at this moment"}},
        {"window.timeline.compare", {"Compare with another moment"}},
        {"window.timeline.kept", {"Kept"}},
        {"window.timeline.keptHelp", {"Named moments are always kept when older history is thinned out."}},
        {"window.timeline.rewindMark", {"Rewind"}},
        {"window.timeline.beforeRewindMark", {"Before a rewind"}},
        {"window.timeline.namedOnly", {"Named moments only"}},
        {"window.timeline.goToDate", {"Go to a date"}},
        {"window.timeline.go", {"Go"}},
        {"window.timeline.calendar", {"Days with changes"}},
        {"window.timeline.day %lld %@", {"%lld changes on %@", "1 change on %@"}},
        {"window.timeline.older", {"Load older moments"}},
        {"window.timeline.loading", {"Loading\u2026"}},
        {"window.timeline.empty", {"No history yet: saved changes appear here."}},
        {"window.timeline.noNamed", {"No moment of this folder has a name."}},
        {"window.timeline.noNamedYet", {"No named moment among those loaded yet."}},
        {"window.timeline.nothingThatDay", {"Nothing changed that day: showing what came before it."}},
        {"window.timeline.rewindSteps %lld", {"The %lld steps", "The step"}},
        {"window.timeline.step.revert", {"Put back"}},
        {"window.timeline.step.restore", {"Brought back"}},
        {"window.timeline.step.remove", {"Removed"}},
        {"window.timeline.keys.nextMoment", {"Next moment"}},
        {"window.timeline.keys.previousMoment", {"Previous moment"}},
        {"window.timeline.keys.nextChange", {"Next change in the moment"}},
        {"window.timeline.keys.previousChange", {"Previous change in the moment"}},
        {"window.name.title", {"Name this moment"}},
        {"window.name.renameTitle", {"Rename this moment"}},
        {"window.name.for %@", {"The moment of %@."}},
        {"window.name.label", {"Name"}},
        {"window.name.kept", {"A named moment is kept when older history is thinned out."}},
        {"window.name.empty", {"A moment's name cannot be empty."}},
        {"window.name.save", {"Save"}},
        {"window.export.title", {"Export this moment"}},
        {"window.export.subtitle %@ %@", {"%@ as it was at %@, written into a new folder."}},
        {"window.export.destination", {"New folder (absolute path)"}},
        {"window.export.help", {"The folder must not exist yet; Vosklin never writes over anything."}},
        {"window.export.notAbsolute", {"Give the new folder's absolute path, starting with /."}},
        {"window.export.action", {"Export"}},
        {"window.export.done %lld %@ %@", {"Exported %lld files (%@) into %@.", "Exported 1 file (%@) into %@."}},
        {"window.files.tab", {"Files"}},
        {"window.files.title %@", {"%@: files"}},
        {"window.files.at", {"As it was at"}},
        {"window.files.moment", {"Moment"}},
        {"window.files.show", {"Show"}},
        {"window.files.summary %lld", {"%lld files.", "1 file."}},
        {"window.files.deletedSummary %lld", {"%lld of them are deleted now.", "1 of them is deleted now."}},
        {"window.files.count %lld", {"%lld files", "1 file"}},
        {"window.files.deletedNow", {"Deleted now"}},
        {"window.files.empty", {"The folder had no files at that moment."}},
        {"window.versions.title %@", {"%@: versions"}},
        {"window.versions.caption", {"Versions, newest first"}},
        {"window.versions.liveExists %@", {"The file exists now (%@)."}},
        {"window.versions.liveGone", {"The file is deleted now."}},
        {"window.versions.folderTimeline", {"The folder's timeline"}},
        {"window.versions.starredOnly", {"Starred versions only"}},
        {"window.versions.comparePicked", {"Compare the two picked"}},
        {"window.versions.pickTwo %lld", {"Pick two versions to compare (%lld picked)"}},
        {"window.versions.pick %@", {"Pick the version of %@"}},
        {"window.versions.pickColumn", {"Pick"}},
        {"window.versions.when", {"When"}},
        {"window.versions.size", {"Size"}},
        {"window.versions.source", {"Recorded by"}},
        {"window.versions.starColumn", {"Star"}},
        {"window.versions.actions", {"Actions"}},
        {"window.versions.star", {"Star"}},
        {"window.versions.kept", {"Kept"}},
        {"window.versions.keptHelp", {"Starred versions are always kept when older history is thinned out."}},
        {"window.versions.open", {"Open"}},
        {"window.versions.compareLive", {"Compare with now"}},
        {"window.versions.comparePrevious", {"Compare with the one before"}},
        {"window.versions.restore", {"Restore\u2026"}},
        {"window.versions.more", {"Load more versions"}},
        {"window.versions.count %lld", {"%lld versions", "1 version"}},
        {"window.versions.none", {"No versions."}},
        {"window.versions.noStarred", {"No starred version."}},
        {"window.versions.deleted %lld", {"%lld versions deleted from the history.", "1 version deleted from the history."}},
        {"window.versions.source.watcher", {"Saved"}},
        {"window.versions.source.crawl", {"Found by a scan"}},
        {"window.versions.source.baseline", {"First recording"}},
        {"window.versions.source.preRestore", {"Kept before a restore"}},
        {"window.versions.source.preRewind", {"Kept before a rewind"}},
        {"window.versions.source.rewound", {"Written by a rewind"}},
        {"window.versions.source.manual", {"Snapshot"}},
        {"window.versions.restore.title", {"Restore this version"}},
        {"window.versions.restore.subtitle %@ %@", {"%@ as it was at %@:"}},
        {"window.versions.restore.beside", {"Beside the file"}},
        {"window.versions.restore.besideHelp", {"A copy with its own name next to the file; the file is not touched."}},
        {"window.versions.restore.inPlace", {"In place of the file"}},
        {"window.versions.restore.inPlaceHelp", {"The file becomes this version; as it is now, it stays in the history."}},
        {"window.versions.restore.action", {"Restore"}},
        {"window.versions.keys.next", {"Next version"}},
        {"window.versions.keys.previous", {"Previous version"}},
        {"window.compare.title %@", {"%@: comparison"}},
        {"window.compare.titlePlain", {"Comparison"}},
        {"window.compare.choose", {"Choose two versions on a file's version timeline to compare them."}},
        {"window.compare.older", {"Older"}},
        {"window.compare.newer", {"Newer"}},
        {"window.compare.live", {"The file as it is now"}},
        {"window.compare.version %@", {"The version of %@"}},
        {"window.compare.versionNumber %@", {"Version %@"}},
        {"window.compare.versionShort", {"the version of"}},
        {"window.compare.backToVersions", {"The file's versions"}},
        {"window.compare.text.layout", {"Layout"}},
        {"window.compare.text.split", {"Side by side"}},
        {"window.compare.text.unified", {"Unified"}},
        {"window.compare.text.oldLine", {"Old line"}},
        {"window.compare.text.newLine", {"New line"}},
        {"window.compare.text.line", {"Text"}},
        {"window.compare.text.change", {"Change"}},
        {"window.compare.text.added", {"Added"}},
        {"window.compare.text.removed", {"Removed"}},
        {"window.compare.text.counts %lld %lld", {"Lines added: %lld. Lines removed: %lld."}},
        {"window.compare.text.unfold %lld", {"Show %lld unchanged lines", "Show 1 unchanged line"}},
        {"window.compare.text.region %lld %lld", {"Lines %lld to %lld"}},
        {"window.compare.image.mode", {"How to compare"}},
        {"window.compare.image.side", {"Side by side"}},
        {"window.compare.image.swipe", {"Swipe"}},
        {"window.compare.image.onion", {"Onion skin"}},
        {"window.compare.image.difference", {"Difference"}},
        {"window.compare.image.swipePosition", {"Where the newer image begins"}},
        {"window.compare.image.opacity", {"Opacity of the newer image"}},
        {"window.compare.image.computing", {"Comparing the pixels\u2026"}},
        {"window.compare.image.differing %lld", {"%lld pixels differ (shown bright on black).", "1 pixel differs (shown bright on black)."}},
        {"window.compare.image.same", {"No pixel differs."}},
        {"window.compare.image.sizes %@ %@", {"The sizes differ: %@ and %@ pixels."}},
        {"window.compare.image.unreadable", {"The image cannot be read."}},
        {"window.compare.pdf.previous", {"Previous page"}},
        {"window.compare.pdf.next", {"Next page"}},
        {"window.compare.pdf.page %lld %lld", {"Page %lld of %lld"}},
        {"window.compare.pdf.pageOf %lld %@", {"Page %lld of %@"}},
        {"window.compare.pdf.pages %lld", {"(%lld pages)", "(1 page)"}},
        {"window.compare.pdf.noPage", {"No such page in this version."}},
        {"window.compare.binary.title", {"Bytes"}},
        {"window.compare.binary.size", {"Size"}},
        {"window.compare.binary.digest", {"Digest"}},
        {"window.compare.binary.identical", {"The bytes are identical."}},
        {"window.compare.binary.firstDifference %@ %@", {"They first differ at byte %@ (%@)."}},
        {"window.compare.moments.tab", {"Compare moments"}},
        {"window.compare.moments.title %@", {"%@: compare two moments"}},
        {"window.compare.moments.from", {"From"}},
        {"window.compare.moments.to", {"To"}},
        {"window.compare.moments.action", {"Compare"}},
        {"window.compare.moments.working", {"Comparing\u2026"}},
        {"window.compare.moments.between", {"Between"}},
        {"window.compare.moments.and", {"and"}},
        {"window.compare.moments.same", {"No file differs between these moments."}},
        {"window.compare.moments.tooFew", {"The folder needs two moments on its timeline to compare them."}},
        {"window.compare.moments.added %lld", {"%lld files added", "1 file added"}},
        {"window.compare.moments.changed %lld", {"%lld files changed", "1 file changed"}},
        {"window.compare.moments.deleted %lld", {"%lld files deleted", "1 file deleted"}},
        {"window.compare.moments.renamed %lld", {"%lld files renamed", "1 file renamed"}},
        {"window.compare.moments.file", {"File"}},
        {"window.compare.moments.before", {"Size before"}},
        {"window.compare.moments.after", {"Size after"}},
        {"window.compare.moments.delta", {"Difference"}},
        {"window.compare.moments.open", {"Compare"}},
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
