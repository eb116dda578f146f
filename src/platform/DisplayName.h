#pragma once

#include <string>
#include <string_view>

namespace vosklin {

// How a file name or path is shown in text meant for people (terminal output,
// error lines, logs).
//
// A name is bytes, and some bytes drive the terminal: an ESC sequence in a
// name could erase or rewrite the lines around it (a rewind plan shown before
// its question, say). So a name holding a control character (C0, DEL, C1) or a
// byte that is not valid UTF-8 is shown quoted as a shell would read it back:
// $'...' with \n \t \r \a \b \f \v, \033 for ESC, \\ and \' for themselves, and
// every other such byte as three octal digits ("a\033[2Kb" -> $'a\033[2Kb').
// Every other name is shown exactly as it is. The quoting does not depend on
// where the text goes: the same name reads the same on a terminal, in a pipe
// and in a log. Programs read --json, which keeps the bytes losslessly.
//
// Pure functions; thread-safe.
class DisplayName {
public:
    // True when `name` holds anything that must not reach a terminal raw.
    static bool needsQuoting(std::string_view name);
    // `name` as it is shown: unchanged, or quoted as above.
    static std::string of(std::string_view name);
};

}  // namespace vosklin
