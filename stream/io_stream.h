#pragma once

#include <cstring>

#include "zr_mp4.h"

namespace zrmp4 {

// A byte stream with typed big-endian transfers. Each transfer answers the number of bytes it moved; anything but
// the full count is a failure, which the caller logs, and after which the position is undefined.
//
// A concrete stream supplies raw transfers and may lend the base two windows of memory: free buffer space to write
// into and buffered bytes to read from. Transfers that fit a window touch nothing else.
class IOStream {
 public:
  IOStream() = default;
  IOStream(const IOStream&) = delete;
  IOStream& operator=(const IOStream&) = delete;
  virtual ~IOStream() = default;

  // whence as in lseek. 0, or non-zero with errno set.
  virtual int seek(long long offset, int whence) = 0;

 protected:
  virtual ZR_U32 rawRead(ZR_U8* data, ZR_U32 length) = 0;
  virtual ZR_U32 rawWrite(const ZR_U8* data, ZR_U32 length) = 0;

 public:
  virtual ZR_U64 getCurPos() = 0;
  virtual ZR_U64 size() = 0;
  virtual long long getFileSize() = 0;
  virtual int close() = 0;

  ZR_U32 readByte(ZR_U8* value) { return get<1>(value); }
  ZR_U32 readBe16(ZR_U16* value) { return get<2>(value); }
  ZR_U32 readBe24(ZR_U32* value) { return get<3>(value); }
  ZR_U32 readBe32(ZR_U32* value) { return get<4>(value); }
  ZR_U32 read64(ZR_U64* value) { return get<8>(value); }
  ZR_U32 readBytes(ZR_U8* data, ZR_U32 length);

  ZR_U32 writeByte(ZR_U8 value) { return put<1>(value); }
  ZR_U32 writeBe16(ZR_U16 value) { return put<2>(value); }
  ZR_U32 writeBe24(ZR_U32 value) { return put<3>(value); }
  ZR_U32 writeBe32(ZR_U32 value) { return put<4>(value); }
  ZR_U32 write64(ZR_U64 value) { return put<8>(value); }
  ZR_U32 writeBytes(const ZR_U8* data, ZR_U32 length);

  // Free space for the next length bytes, which count as written once filled, or null where the buffer has none: a
  // record that is put together there costs no call per field.
  ZR_U8* claim(ZR_U32 length) {
    if (mWriteAt == nullptr || static_cast<ZR_U64>(mWriteEnd - mWriteAt) < length) return nullptr;
    ZR_U8* const space = mWriteAt;
    mWriteAt += length;
    return space;
  }

  // Whole tables, swapped on the way. Answer the bytes moved, a multiple of the entry's width when cut short.
  ZR_U64 writeArrayOfBe32(const ZR_U32* values, ZR_U32 count);
  ZR_U64 writeArrayOfBe64(const ZR_U64* values, ZR_U32 count);

  // Moves the position forward without reading. 0, or non-zero on failure.
  int skip(ZR_U32 length) { return seek(static_cast<long long>(length), 1); }

  // What lies between the position and the end of the stream.
  ZR_U64 remaining() {
    const ZR_U64 position = getCurPos();
    const ZR_U64 end = size();
    return end > position ? end - position : 0;
  }

  static void storeBe32(ZR_U8* to, ZR_U32 value) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    value = __builtin_bswap32(value);
#endif
    std::memcpy(to, &value, sizeof(value));
  }
  // Between big-endian and host order, in place, either way.
  static void swapArrayOfBe32(ZR_U32* array, ZR_U32 count);
  static void swapArrayOfBe64(ZR_U64* array, ZR_U32 count);

 protected:
  ZR_U8* mWriteAt = nullptr;
  ZR_U8* mWriteEnd = nullptr;
  const ZR_U8* mReadAt = nullptr;
  const ZR_U8* mReadEnd = nullptr;

 private:
  template <unsigned kWidth, typename T>
  ZR_U32 get(T* value) {
    ZR_U8 bytes[kWidth];
    const ZR_U8* from = bytes;
    if (mReadEnd - mReadAt >= static_cast<long>(kWidth)) {
      from = mReadAt;
      mReadAt += kWidth;
    } else {
      const ZR_U32 moved = rawRead(bytes, kWidth);
      if (moved != kWidth) return moved;
    }
    ZR_U64 result = 0;
    for (unsigned i = 0; i < kWidth; ++i) result = result << 8 | from[i];
    *value = static_cast<T>(result);
    return kWidth;
  }

  template <unsigned kWidth>
  ZR_U32 put(ZR_U64 value) {
    ZR_U8 bytes[kWidth];
    const bool fits = mWriteEnd - mWriteAt >= static_cast<long>(kWidth);
    ZR_U8* to = fits ? mWriteAt : bytes;
    for (unsigned i = 0; i < kWidth; ++i) to[i] = static_cast<ZR_U8>(value >> 8 * (kWidth - 1 - i));
    if (!fits) return rawWrite(bytes, kWidth);
    mWriteAt += kWidth;
    return kWidth;
  }
};

}  // namespace zrmp4
