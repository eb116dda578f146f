#pragma once

#include <optional>
#include <string_view>

namespace vosklin {

// What caused a capture; stored as the case name in versions.source.
enum class CaptureSource { watcher, crawl, baseline, preRestore, preRewind, rewound, manual };

std::string_view toString(CaptureSource source);
std::optional<CaptureSource> captureSourceFromString(std::string_view text);

}  // namespace vosklin
