#pragma once

#include <string>

namespace vosklin {

// Words for a write that failed because the disk (or the user's quota) is full,
// naming the path and the file system that holds it. Reads the file system only
// to find that mount point (stat of the path's parents); never throws.

// ENOSPC or EDQUOT.
bool isDiskFullError(int errorNumber);
// "The disk holding /home/ann/.vosklin/store/index.sqlite is full (the file system
// at /home); free some space there and try again".
std::string diskFullMessage(const std::string& path);

}  // namespace vosklin
