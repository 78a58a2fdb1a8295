#pragma once

#include "stream/io_stream.h"

namespace zrmp4 {

// A growable buffer in memory, used to hand one box's payload to a caller.
class MemIOStream : public IOStream {
 public:
  ~MemIOStream() override;

  // Prepares the buffer. 0, or -1 when memory is out.
  int open();
  int seek(long long offset, int whence) override;
  ZR_U64 getCurPos() override { return mPosition; }
  ZR_U64 size() override { return mSize; }
  long long getFileSize() override { return mSize; }
  int close() override;

  // The bytes written, size() of them; the stream's, until it is closed or written again.
  const ZR_U8* data() const { return mBuffer; }

 protected:
  ZR_U32 rawRead(ZR_U8* data, ZR_U32 length) override;
  ZR_U32 rawWrite(const ZR_U8* data, ZR_U32 length) override;

 private:
  bool grow(ZR_U64 needed);

  ZR_U8* mBuffer = nullptr;
  ZR_U32 mCapacity = 0;
  ZR_U32 mPosition = 0;
  ZR_U32 mSize = 0;
};

}  // namespace zrmp4
