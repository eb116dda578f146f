#pragma once

#include <map>
#include <optional>
#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin check [FOLDER] [--read-data] [--json]`: proves that every version
// the catalog holds is in the store as recorded (see StoreChecker). Problems
// are printed one a line (or as records with --json) and make the exit status
// 1; slots that no version refers to are notes and leave it 0.
//
// `vosklin check --rebuild [--force]`: a new catalog from the slots' sidecars
// (see CatalogRebuilder), the old one set aside. Refused while a daemon runs,
// and on a catalog that opens as it is unless forced, since a rebuilt catalog
// lacks what only the catalog knew (moment names, stars, events, sources).
class CheckCommand {
public:
    CheckCommand(AppContext& context, std::ostream& out, std::ostream& err);

    int check(const std::optional<std::string>& folder, bool readData, bool json);
    int rebuild(bool force, bool json);

private:
    // Every folder the history may belong to, current or removed with its history kept.
    std::map<std::string, std::string> folderRoots();

    AppContext& context_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace vosklin
