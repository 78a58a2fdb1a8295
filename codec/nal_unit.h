#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

// Removes the emulation prevention of an H.264 or H.265 NAL unit: copies it without each 0x03 that follows two zero
// bytes. out has room for size bytes and may be the same array. Answers the bytes written.
ZR_U32 GenSodpByRbsp(const ZR_U8* rbsp, ZR_U32 size, ZR_U8* out);

}  // namespace zrmp4
