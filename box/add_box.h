#pragma once

#include <utility>

#include "base/log.h"
#include "base/make_or_null.h"
#include "box/atom.h"

namespace zrmp4 {

// A new box as the last child of its parent, which owns it; null, and logged, when memory is out.
template <typename Box, typename... Arguments>
Box* AddBox(Atom& parent, const char* type, Arguments&&... arguments) {
  auto box = MakeOrNull<Box>(std::forward<Arguments>(arguments)...);
  if (box == nullptr) return ZR_FAIL(nullptr, "no memory:%s\n", type);
  Box* added = box.release();
  parent.AddChild(added);
  return added;
}

}  // namespace zrmp4
