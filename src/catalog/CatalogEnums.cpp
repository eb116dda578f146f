// The stored strings of the catalog's closed sets of cases, in one table each.
#include <array>
#include <utility>

#include "catalog/CaptureSource.h"
#include "catalog/FileEventRow.h"
#include "catalog/MomentMark.h"
#include "store/CloneMethod.h"

namespace vosklin {
namespace {

template <class Enum, std::size_t N>
using Names = std::array<std::pair<Enum, std::string_view>, N>;

constexpr Names<CaptureSource, 7> captureSourceNames{{
    {CaptureSource::watcher, "watcher"},
    {CaptureSource::crawl, "crawl"},
    {CaptureSource::baseline, "baseline"},
    {CaptureSource::preRestore, "preRestore"},
    {CaptureSource::preRewind, "preRewind"},
    {CaptureSource::rewound, "rewound"},
    {CaptureSource::manual, "manual"},
}};
constexpr Names<CloneMethod, 3> cloneMethodNames{{
    {CloneMethod::cloned, "cloned"},
    {CloneMethod::copied, "copied"},
    {CloneMethod::unknown, "unknown"},
}};
constexpr Names<FileEventKind, 3> fileEventKindNames{{
    {FileEventKind::deleted, "deleted"},
    {FileEventKind::appeared, "appeared"},
    {FileEventKind::renamed, "renamed"},
}};
constexpr Names<MomentMark::Kind, 3> markKindNames{{
    {MomentMark::Kind::named, "named"},
    {MomentMark::Kind::beforeRewind, "beforeRewind"},
    {MomentMark::Kind::rewind, "rewind"},
}};

template <class Enum, std::size_t N>
std::string_view nameOf(const Names<Enum, N>& names, Enum value) {
    for (const auto& [candidate, name] : names)
        if (candidate == value) return name;
    return {};
}

template <class Enum, std::size_t N>
std::optional<Enum> valueOf(const Names<Enum, N>& names, std::string_view text) {
    for (const auto& [candidate, name] : names)
        if (name == text) return candidate;
    return std::nullopt;
}

}  // namespace

std::string_view toString(CaptureSource source) { return nameOf(captureSourceNames, source); }
std::optional<CaptureSource> captureSourceFromString(std::string_view text) { return valueOf(captureSourceNames, text); }

std::string_view toString(CloneMethod method) { return nameOf(cloneMethodNames, method); }
CloneMethod cloneMethodFromString(std::string_view text) {
    return valueOf(cloneMethodNames, text).value_or(CloneMethod::unknown);
}

std::string_view toString(FileEventKind kind) { return nameOf(fileEventKindNames, kind); }
std::optional<FileEventKind> fileEventKindFromString(std::string_view text) { return valueOf(fileEventKindNames, text); }

std::string_view toString(MomentMark::Kind kind) { return nameOf(markKindNames, kind); }
std::optional<MomentMark::Kind> markKindFromString(std::string_view text) { return valueOf(markKindNames, text); }

}  // namespace vosklin
