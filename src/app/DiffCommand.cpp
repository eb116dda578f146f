#include "app/DiffCommand.h"

#include <unistd.h>

#include <cstdlib>

#include "app/CommandError.h"
#include "app/CompareRequests.h"
#include "app/TerminalOutput.h"
#include "compare/TextDiff.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/RegularFile.h"
#include "platform/StringTable.h"

namespace vosklin {
namespace {

constexpr std::int64_t largestCompared = CompareRequests::largestCompared;
constexpr std::size_t contextLines = 3;

std::string readLimited(FileSystem& fileSystem, const std::string& path) {
    auto status = fileSystem.status(path);
    if (!status) throw CommandError(DisplayName::of(path) + " does not exist");
    if (status->isDirectory()) throw CommandError(DisplayName::of(path) + " is a folder; only files can be compared");
    // A named pipe, socket or device would have the command wait on whatever is at the other end.
    if (!status->isRegular())
        throw CommandError(DisplayName::of(path) + " is not a regular file; only files can be compared");
    if (status->size > largestCompared) throw CommandError(DisplayName::of(path) + " is too large to compare as text");
    auto file = openRegularFile(fileSystem, fileSystem.resolvedPath(path), &*status);
    if (!file) throw CommandError(DisplayName::of(path) + " changed while it was being read; try again");
    std::string text;
    char buffer[65536];
    while (std::size_t count = fileSystem.read(file->fd.get(), buffer, sizeof buffer)) text.append(buffer, count);
    return text;
}

}  // namespace

DiffCommand::DiffCommand(AppContext& context, std::ostream& out, int outputFd)
    : context_(context), out_(out), colour_(::isatty(outputFd) == 1 && !std::getenv("NO_COLOR")) {}

DiffCommand::Side DiffCommand::load(const std::string& versionOrPath) {
    char* end = nullptr;
    const long long id = std::strtoll(versionOrPath.c_str(), &end, 10);
    const bool isNumber = !versionOrPath.empty() && *end == '\0';
    if (isNumber && id > 0 && !context_.fileSystem().status(versionOrPath)) {
        std::string bytes = CompareRequests::versionText(context_, id);
        const double capturedAt = context_.readCatalog().version(id)->capturedAt;
        return {"version " + versionOrPath + " (" + formatLocalTime(capturedAt) + ")", std::move(bytes)};
    }
    return {DisplayName::of(versionOrPath), readLimited(context_.fileSystem(), absolutePath(versionOrPath))};
}

int DiffCommand::run(const std::string& olderName, const std::string& newerName, bool json) {
    const Side older = load(olderName), newer = load(newerName);
    const TextDiff::Result result = TextDiff::compare(older.bytes, newer.bytes);
    using Kind = TextDiff::Result::Kind;
    using LineKind = TextDiff::Line::Kind;

    if (json) {
        out_ << CompareRequests::diffJson(result).dump(2) << "\n";
        return 0;
    }

    if (result.kind == Kind::notText) {
        out_ << StringTable::text("compare.text.notText") << "\n";
        return 0;
    }
    if (result.kind == Kind::summary) {
        out_ << StringTable::text("compare.text.tooLarge") << "\n"
             << StringTable::text("compare.text.summary %lld %lld",
                                  {std::to_string(result.newerDiffering), std::to_string(result.olderDiffering)})
             << "\n"
             << StringTable::count("compare.text.regions %lld", static_cast<long long>(result.regions.size())) << "\n";
        for (const auto& region : result.regions)
            out_ << "  lines " << region.startLine << " to " << region.startLine + region.length - 1 << "\n";
        return 0;
    }
    if (result.isIdentical()) {
        out_ << StringTable::text("compare.text.identical") << "\n";
        return 0;
    }
    const char* red = colour_ ? "\033[31m" : "";
    const char* green = colour_ ? "\033[32m" : "";
    const char* cyan = colour_ ? "\033[36m" : "";
    const char* plain = colour_ ? "\033[0m" : "";
    out_ << "--- " << older.label << "\n+++ " << newer.label << "\n";
    const auto& lines = result.lines;
    // Show each change with a little context; fold the long unchanged runs between.
    std::vector<bool> shown(lines.size(), false);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].kind == LineKind::context) continue;
        const std::size_t from = i >= contextLines ? i - contextLines : 0;
        const std::size_t to = std::min(lines.size(), i + contextLines + 1);
        for (std::size_t j = from; j < to; ++j) shown[j] = true;
    }
    bool inHunk = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (!shown[i]) {
            inHunk = false;
            continue;
        }
        const auto& line = lines[i];
        if (!inHunk) {
            out_ << cyan << "@@ old line " << (line.oldNumber ? *line.oldNumber : 0) << ", new line "
                 << (line.newNumber ? *line.newNumber : 0) << " @@" << plain << "\n";
            inHunk = true;
        }
        char numbers[32];
        std::snprintf(numbers, sizeof numbers, "%6s %6s ",
                      line.oldNumber ? std::to_string(*line.oldNumber).c_str() : "",
                      line.newNumber ? std::to_string(*line.newNumber).c_str() : "");
        const char* colour = line.kind == LineKind::added ? green : line.kind == LineKind::removed ? red : "";
        const char marker = line.kind == LineKind::added ? '+' : line.kind == LineKind::removed ? '-' : ' ';
        out_ << numbers << colour << marker << " " << line.text << (*colour ? plain : "") << "\n";
    }
    return 0;
}

}  // namespace vosklin
