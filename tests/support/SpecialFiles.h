#pragma once

#include <string>
#include <vector>

namespace vosklin::test {

// Items of a folder that are neither files nor directories, as other programs
// leave them: a named pipe (mkfifo), a bound Unix socket, a character device.
enum class SpecialFile { namedPipe, socket, characterDevice };

std::vector<SpecialFile> allSpecialFiles();
const char* nameOf(SpecialFile kind);

// Makes one at `path`. False, with the reason in `whyNot`, when this machine
// does not allow it (a device node needs privileges): the caller skips it.
bool makeSpecialFile(SpecialFile kind, const std::string& path, std::string& whyNot);

}  // namespace vosklin::test
