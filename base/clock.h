#pragma once

#include <ctime>

#include "zr_mp4.h"

namespace zrmp4 {

// A clock for intervals, in microseconds.
inline ZR_U64 NowMicroseconds() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<ZR_U64>(now.tv_sec) * 1000000 + static_cast<ZR_U64>(now.tv_nsec) / 1000;
}

}  // namespace zrmp4
