#pragma once

#include "zr_mp4.h"

namespace zrmp4 {

// Reads the bits of a byte array from the most significant on. A read past the end, or an Exp-Golomb code that is
// none, makes this and every later read answer 0 and failed() true: a parser can check once, at its end.
class BitReader {
 public:
  BitReader(const ZR_U8* data, ZR_U32 size) : mData(data), mEnd(static_cast<ZR_U64>(data != nullptr ? size : 0) * 8) {}

  bool failed() const { return mFailed; }
  // For a parser that meets a value that cannot be.
  void fail() { mFailed = true; }

  // The next 0 to 32 bits.
  ZR_U32 bits(unsigned count) {
    if (!take(count)) return 0;
    ZR_U32 value = 0;
    for (ZR_U64 at = mAt - count; at < mAt; ++at) value = value << 1 | (mData[at / 8] >> (7 - at % 8) & 1u);
    return value;
  }

  bool flag() { return bits(1) != 0; }
  void skip(unsigned count) { take(count); }

  // Unsigned Exp-Golomb code, 0 to 2^32 - 2.
  ZR_U32 ue() {
    unsigned zeros = 0;
    while (!flag()) {
      if (mFailed || ++zeros > 31) {
        mFailed = true;
        return 0;
      }
    }
    const ZR_U32 rest = bits(zeros);
    return mFailed ? 0 : (1u << zeros) - 1 + rest;
  }

  // The same up to a limit: what is above it fails.
  ZR_U32 ueUpTo(ZR_U32 limit) {
    const ZR_U32 value = ue();
    if (value <= limit) return value;
    mFailed = true;
    return 0;
  }

  // Signed Exp-Golomb code: 0, 1, -1, 2, -2 and so on.
  ZR_S32 se() {
    const ZR_U32 code = ue();
    const ZR_S32 magnitude = static_cast<ZR_S32>(code / 2);
    return code % 2 != 0 ? magnitude + 1 : -magnitude;
  }

 private:
  bool take(unsigned count) {
    if (count > 32 || mFailed || mEnd - mAt < count) {
      mFailed = true;
      return false;
    }
    mAt += count;
    return true;
  }

  const ZR_U8* mData;
  ZR_U64 mAt = 0;
  ZR_U64 mEnd;
  bool mFailed = false;
};

}  // namespace zrmp4
