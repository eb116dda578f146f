#include "app/ExportCommand.h"

#include <stop_token>

#include "app/ByteCount.h"
#include "app/CommandError.h"
#include "app/InterruptibleRun.h"
#include "app/JsonRecords.h"
#include "app/TerminalOutput.h"
#include "app/UserInstant.h"
#include "history/FolderHistory.h"
#include "platform/DisplayName.h"
#include "restore/FolderExport.h"

namespace vosklin {

ExportCommand::ExportCommand(AppContext& context, std::ostream& out, std::ostream& err)
    : context_(context), out_(out), err_(err) {}

int ExportCommand::run(const std::string& folderName, const std::string& moment, const std::string& destination,
                       bool json) {
    const WatchedFolder folder = context_.folders().require(folderName);
    const auto reading = readUserInstant(moment);
    if (!reading.instant) throw CommandError(userInstantRefusal(moment, reading));
    if (!context_.storeExists()) throw CommandError("Vosklin has no history of " + DisplayName::of(folder.path) + " yet");
    auto& catalog = context_.readCatalog();
    // As printed, an instant is rounded to the microsecond: export the state it stands for.
    const double at = FolderHistory::load(catalog, folder.id).stateInstant(*reading.instant);

    FolderExport exporter(catalog, context_.layout(), context_.cloner(), context_.fileSystem());
    FolderExport::Report report;
    std::stop_source stop;
    try {
        ProgressBar bar(err_, 2, "Exporting");
        runInterruptible(
            [&] {
                report = exporter.run(folder, at, destination,
                                      [&](std::int64_t done, std::int64_t total) { bar.update(done, total); },
                                      stop.get_token());
            },
            [&] { stop.request_stop(); });
    } catch (const ExportError& error) {
        throw CommandError(error.what());
    }
    if (json) {
        out_ << toJson(report, folder.id, at).dump(2) << "\n";
        return 0;
    }
    out_ << "Exported " << report.fileCount << (report.fileCount == 1 ? " file (" : " files (")
         << formatByteCount(report.logicalBytes) << ") of " << DisplayName::of(folder.path) << " as it was at "
         << formatLocalTime(at) << " into " << DisplayName::of(report.destination);
    if (report.fileCount > 0)
        out_ << (report.clonedCount == report.fileCount ? "; every file shares its blocks with the store"
                 : report.clonedCount == 0           ? "; copied (this file system cannot share blocks)"
                                                     : "; " + std::to_string(report.clonedCount) + " share their blocks with the store");
    out_ << "\n";
    return 0;
}

}  // namespace vosklin
