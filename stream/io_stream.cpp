#include "stream/io_stream.h"

#include <cstring>

namespace zrmp4 {
namespace {

constexpr ZR_U32 kSwapEntries = 256;  // swapped on the stack at a time, 1 or 2 KiB

inline ZR_U32 Swapped(ZR_U32 value) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return __builtin_bswap32(value);
#else
  return value;
#endif
}

inline ZR_U64 Swapped(ZR_U64 value) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return __builtin_bswap64(value);
#else
  return value;
#endif
}

// Unrolled, as the index of a long recording is little else.
template <typename T>
void SwapArray(const T* from, T* to, ZR_U32 count) {
#pragma GCC unroll 8
  for (ZR_U32 i = 0; i < count; ++i) to[i] = Swapped(from[i]);
}

template <typename T>
ZR_U64 WriteArray(IOStream& stream, const T* values, ZR_U32 count) {
  T swapped[kSwapEntries];
  ZR_U64 moved = 0;
  for (ZR_U32 done = 0; done < count;) {
    const ZR_U32 run = count - done < kSwapEntries ? count - done : kSwapEntries;
    SwapArray(values + done, swapped, run);
    const ZR_U32 length = run * static_cast<ZR_U32>(sizeof(T));
    const ZR_U32 written = stream.writeBytes(reinterpret_cast<const ZR_U8*>(swapped), length);
    moved += written - written % sizeof(T);
    if (written != length) return moved;
    done += run;
  }
  return moved;
}

}  // namespace

ZR_U32 IOStream::readBytes(ZR_U8* data, ZR_U32 length) {
  if (mReadAt == nullptr || static_cast<ZR_U64>(mReadEnd - mReadAt) < length) return rawRead(data, length);
  if (length != 0) std::memcpy(data, mReadAt, length);
  mReadAt += length;
  return length;
}

ZR_U32 IOStream::writeBytes(const ZR_U8* data, ZR_U32 length) {
  // Larger pieces may have a shorter way than through the buffer.
  constexpr ZR_U32 kSmall = 4096;
  if (length > kSmall || mWriteAt == nullptr || static_cast<ZR_U64>(mWriteEnd - mWriteAt) < length) {
    return rawWrite(data, length);
  }
  if (length != 0) std::memcpy(mWriteAt, data, length);
  mWriteAt += length;
  return length;
}

ZR_U64 IOStream::writeArrayOfBe32(const ZR_U32* values, ZR_U32 count) { return WriteArray(*this, values, count); }

ZR_U64 IOStream::writeArrayOfBe64(const ZR_U64* values, ZR_U32 count) { return WriteArray(*this, values, count); }

void IOStream::swapArrayOfBe32(ZR_U32* array, ZR_U32 count) { SwapArray(array, array, count); }

void IOStream::swapArrayOfBe64(ZR_U64* array, ZR_U32 count) { SwapArray(array, array, count); }

}  // namespace zrmp4
