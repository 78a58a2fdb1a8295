#pragma once

#include "base/make_or_null.h"
#include "box/atom.h"

namespace zrmp4 {

// A type that a container recognises, and the box made for it.
struct ChildType {
  const char* type;
  Atom* (*make)(const AtomHeader& header);
};

template <typename Box>
Atom* NewChild(const AtomHeader& header) {
  return NewOrNull<Box>(header);
}

// "new %s atom no memory\n"
void LogNoMemoryForChild(const char* type);

// Reads the next child of a container: its header, then the content by the class found in the table; any other type
// is kept whole as a UserDefAtom. Null when there is no child, or when it cannot be read.
Atom* ReadChildOf(IOStream* stream, const ChildType* types, ZR_U32 count,
                  void (*noMemory)(const char* type) = LogNoMemoryForChild);

template <ZR_U32 kCount>
Atom* ReadChildOf(IOStream* stream, const ChildType (&types)[kCount]) {
  return ReadChildOf(stream, types, kCount);
}

}  // namespace zrmp4
