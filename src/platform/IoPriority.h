#pragma once

namespace vosklin {

// Background work that must not compete with the user's own disk use.
namespace IoPriority {

// Moves the calling thread to the idle I/O class (it gets the disk only when
// nobody else wants it) and to the lowest CPU priority. Best effort: where the
// kernel refuses, the thread keeps its priority and nothing is thrown.
void makeThisThreadIdle();

}  // namespace IoPriority
}  // namespace vosklin
