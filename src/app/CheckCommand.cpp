#include "app/CheckCommand.h"

#include <nlohmann/json.hpp>

#include "app/CommandError.h"
#include "app/DaemonEndpoint.h"
#include "app/TerminalOutput.h"
#include "catalog/CatalogError.h"
#include "catalog/DatabaseError.h"
#include "platform/DisplayName.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "store/CatalogRebuilder.h"
#include "store/PayloadDigest.h"
#include "store/StoreChecker.h"

namespace vosklin {
namespace {

nlohmann::json toJson(const StoreProblem& problem) {
    nlohmann::json record = {{"kind", std::string(toString(problem.kind))},
                             {"slot", problem.slot},
                             {"detail", displayableUtf8(problem.detail)}};
    record["versionID"] = problem.versionID ? nlohmann::json(*problem.versionID) : nlohmann::json();
    if (!problem.field.empty()) record["field"] = problem.field;
    return record;
}

std::string describe(const StoreProblem& problem) {
    std::string line = problem.versionID ? "version " + std::to_string(*problem.versionID) + " (" + problem.slot + ")"
                                         : problem.slot;
    return line + ": " + DisplayName::of(problem.detail);
}

std::string plural(std::int64_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

CheckCommand::CheckCommand(AppContext& context, std::ostream& out, std::ostream& err)
    : context_(context), out_(out), err_(err) {}

std::map<std::string, std::string> CheckCommand::folderRoots() {
    std::map<std::string, std::string> roots;
    for (const auto& folder : context_.folders().retired()) roots[folder.id] = folder.path;
    for (const auto& folder : context_.folders().folders()) roots[folder.id] = folder.path;
    return roots;
}

int CheckCommand::check(const std::optional<std::string>& folder, bool readData, bool json) {
    StoreChecker::Options options;
    options.readData = readData;
    if (folder) options.folderID = context_.folders().require(*folder).id;
    StoreChecker::Report report;
    if (context_.storeExists()) {
        PayloadDigest digest(context_.fileSystem());
        StoreChecker checker(context_.catalog(), context_.layout(), context_.fileSystem(), digest, folderRoots());
        ProgressBar bar(err_, 2, "Checking");
        report = checker.check(options, [&](std::int64_t done, std::int64_t total) { bar.update(done, total); });
    }
    if (json) {
        nlohmann::json object = {{"versionsChecked", report.versionsChecked},
                                 {"readData", readData},
                                 {"problems", nlohmann::json::array()},
                                 {"notes", nlohmann::json::array()}};
        for (const auto& problem : report.problems) object["problems"].push_back(toJson(problem));
        for (const auto& note : report.notes) object["notes"].push_back(toJson(note));
        out_ << object.dump(2) << "\n";
    } else {
        for (const auto& problem : report.problems) out_ << describe(problem) << "\n";
        for (const auto& note : report.notes) out_ << "note: " << describe(note) << "\n";
        out_ << "Checked " << plural(report.versionsChecked, "version", "versions")
             << (readData ? ", reading every payload" : "") << ": "
             << (report.problems.empty() ? std::string("all hold") : plural(std::int64_t(report.problems.size()),
                                                                             "problem", "problems"))
             << ".\n";
        if (!report.notes.empty())
            out_ << plural(std::int64_t(report.notes.size()), "slot holds", "slots hold")
                 << " a copy no version refers to (left by an interrupted capture; harmless).\n";
    }
    if (report.problems.empty()) return 0;
    err_ << "vosklin: " << plural(std::int64_t(report.problems.size()), "problem", "problems")
         << " found in the store\n";
    return 1;
}

int CheckCommand::rebuild(bool force, bool json) {
    const std::string container = context_.locator().containerRoot();
    // Held until the rebuild is done, so that no daemon opens the store half-way.
    auto lock = DaemonEndpoint::lock(context_.fileSystem(), container);
    if (!lock) throw CommandError("Vosklin is running for this home; stop it before rebuilding the catalog");
    if (!force && !context_.catalogDamage()) {
        if (!context_.storeExists()) throw CommandError("There is no store to rebuild a catalog for");
        try {
            context_.catalog();
            throw CommandError(
                "The catalog opens as it is ('vosklin check' verifies it); a rebuild would lose moment names, stars "
                "and events, so add --force to rebuild it anyway");
        } catch (const CatalogError& error) {
            if (error.kind() != CatalogError::Kind::damaged) throw;
        }
    }
    CatalogRebuilder rebuilder(context_.layout(), context_.fileSystem(), context_.clock(), folderRoots());
    CatalogRebuilder::Report report;
    {
        ProgressBar bar(err_, 2, "Rebuilding");
        report = rebuilder.rebuild([&](std::int64_t done, std::int64_t total) { bar.update(done, total); });
    }
    if (json) {
        nlohmann::json object = {{"slots", report.slots},
                                 {"files", report.files},
                                 {"versions", report.versions},
                                 {"skipped", nlohmann::json::array()}};
        object["setAsideAs"] = report.setAsideAs ? nlohmann::json(*report.setAsideAs) : nlohmann::json();
        for (const auto& skipped : report.skipped)
            object["skipped"].push_back({{"slot", skipped.slot}, {"reason", displayableUtf8(skipped.reason)}});
        out_ << object.dump(2) << "\n";
        return 0;
    }
    for (const auto& skipped : report.skipped)
        out_ << "skipped " << skipped.slot << ": " << DisplayName::of(skipped.reason) << "\n";
    out_ << "Rebuilt the catalog from " << plural(report.slots, "slot", "slots") << ": "
         << plural(report.files, "file", "files") << ", " << plural(report.versions, "version", "versions") << ".\n";
    if (!report.skipped.empty())
        out_ << plural(std::int64_t(report.skipped.size()), "slot was", "slots were")
             << " skipped and left in the store as they are.\n";
    if (report.setAsideAs)
        out_ << "The old catalog is kept as " << DisplayName::of(joinPath(context_.layout().root(), *report.setAsideAs))
             << ".\n";
    out_ << "Recovered versions are marked as found by a scan; moment names, stars and events were only in the "
            "old catalog.\n";
    return 0;
}

}  // namespace vosklin
