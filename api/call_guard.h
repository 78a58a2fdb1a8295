#pragma once

#include "base/log.h"
#include "zr_mp4.h"

namespace zrmp4 {

// Runs the body of an exported function, so that C callers only ever see a status. What the body owns is released
// by unwinding; all that can be thrown here is that memory, or what a lock needs, is out.
template <typename Body>
ZR_U32 CallGuarded(Body body) noexcept {
  try {
    return body();
  } catch (...) {
    return ZR_FAIL(ZR_ERR_MP4_NO_MEMORY, "no memory for the call\n");
  }
}

}  // namespace zrmp4
