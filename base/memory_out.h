#pragma once

namespace zrmp4 {

// Notes, for this thread, that an allocation failed. Code that would otherwise take an unreadable structure for a
// damaged one asks whether memory was the cause.
void NoteMemoryOut();

// Whether an allocation failed since the last call, and forgets it.
bool TakeMemoryOut();

}  // namespace zrmp4
