#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "app/AppContext.h"

namespace vosklin {

// `vosklin search`: finds words inside every version of the watched folders'
// files (or, with --names, the paths their files ever had).
//
// Reads the catalog only, so it works whether or not the daemon runs.
// On a terminal the matched words are shown in bold; elsewhere between
// brackets. Text from old versions is untrusted: control characters in a
// snippet are shown as spaces, never sent to the terminal.
// Exit status: 0 with matches, 1 without, 2 when the text cannot be searched.
class SearchCommand {
public:
    SearchCommand(AppContext& context, std::ostream& out, std::ostream& err, int outFd);
    int run(const std::string& text, const std::optional<std::string>& folder, bool names, bool json);

private:
    std::string shownSnippet(const std::string& snippet) const;

    AppContext& context_;
    std::ostream& out_;
    std::ostream& err_;
    bool terminal_;
};

}  // namespace vosklin
