#include "stream/mem_io_stream.h"

#include <cerrno>
#include <cstring>
#include <new>

#include "base/memory_out.h"

namespace zrmp4 {

MemIOStream::~MemIOStream() { delete[] mBuffer; }

int MemIOStream::open() {
  constexpr ZR_U32 kFirstCapacity = 4096;
  return grow(kFirstCapacity) ? 0 : -1;
}

int MemIOStream::seek(long long offset, int whence) {
  const long long from = whence == 0 ? 0 : whence == 1 ? mPosition : mSize;
  if (offset < -from || offset > 0xFFFFFFFFLL - from) {
    errno = EINVAL;
    return -1;
  }
  mPosition = static_cast<ZR_U32>(from + offset);
  return 0;
}

int MemIOStream::close() {
  delete[] mBuffer;
  mBuffer = nullptr;
  mCapacity = mPosition = mSize = 0;
  return 0;
}

ZR_U32 MemIOStream::rawRead(ZR_U8* data, ZR_U32 length) {
  const ZR_U32 left = mSize > mPosition ? mSize - mPosition : 0;
  const ZR_U32 moved = length < left ? length : left;
  if (moved != 0) std::memcpy(data, mBuffer + mPosition, moved);
  mPosition += moved;
  return moved;
}

ZR_U32 MemIOStream::rawWrite(const ZR_U8* data, ZR_U32 length) {
  const ZR_U64 end = static_cast<ZR_U64>(mPosition) + length;
  if (length == 0 || !grow(end)) return 0;
  if (mPosition > mSize) std::memset(mBuffer + mSize, 0, mPosition - mSize);
  std::memcpy(mBuffer + mPosition, data, length);
  mPosition = static_cast<ZR_U32>(end);
  if (mPosition > mSize) mSize = mPosition;
  return length;
}

bool MemIOStream::grow(ZR_U64 needed) {
  if (needed <= mCapacity) return true;
  if (needed > 0xFFFFFFFFu) return false;
  const ZR_U64 doubled = static_cast<ZR_U64>(mCapacity) * 2;
  const ZR_U32 capacity = static_cast<ZR_U32>(doubled > needed && doubled <= 0xFFFFFFFFu ? doubled : needed);
  ZR_U8* buffer = new (std::nothrow) ZR_U8[capacity];
  if (buffer == nullptr) {
    NoteMemoryOut();
    return false;
  }
  if (mSize != 0) std::memcpy(buffer, mBuffer, mSize);
  delete[] mBuffer;
  mBuffer = buffer;
  mCapacity = capacity;
  return true;
}

}  // namespace zrmp4
