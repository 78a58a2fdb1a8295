#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

// Seconds since 1970-01-01 in local time, as seconds since 1904-01-01 UTC.
ZR_U64 changeLocalSecond2UTC1904(ZR_U64 seconds);

}  // namespace zrmp4
