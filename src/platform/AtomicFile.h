#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/FileSystem.h"

namespace vosklin {

// Replaces the file at `path` with `contents` so that a reader, or the disk
// after a crash, sees either the whole old file or the whole new one: write a
// uniquely named temporary file beside it, fsync it, rename it over the
// destination, fsync the directory. On failure the temporary file is removed
// and the error rethrown; the destination is untouched.
//
// With `Durability::deferred` the file and directory are not synced: readers
// still see old or new whole, and the caller takes responsibility for making
// it durable (capture syncs a whole batch of slots at once).
enum class Durability { synced, deferred };
void writeFileAtomically(FileSystem& fileSystem, const std::string& path, std::string_view contents,
                         mode_t mode = 0644, Durability durability = Durability::synced);

// A name beside `path` that no other writer will pick: path + "." + tag + "-" + 16 random hex digits.
std::string uniqueSiblingName(const std::string& path, std::string_view tag);

}  // namespace vosklin
