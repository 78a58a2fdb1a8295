#pragma once

#include <memory>
#include <string>

#include "stream/io_stream.h"

namespace zrmp4 {

// Statistics that the stream reports as it writes: how long a write and how long a pre-allocation took, in
// microseconds, with the path that the stream was opened with.
struct ZrOUTPUTStreamProcOptS {
  ZR_U32 (*pfnUpdateWriteTime)(const char* name, ZR_U64 microseconds);
  ZR_U32 (*pfnUpdateAllocTime)(const char* name, ZR_U64 microseconds);
};

// A file on disk behind one buffer, which holds either bytes to be written or bytes read ahead.
//
// The position is a counter: every transfer names its offset, nothing moves the descriptor's own. Pieces too large
// to be worth a copy go to the kernel together with what the buffer holds, in one call. When a write fails the
// buffer keeps what the file did not take, so that the caller can drop its last record and go on later.
class FileIOStream final : public IOStream {
 public:
  FileIOStream() = default;
  ~FileIOStream() override;

  // mode "w" creates or empties the file, "r" reads it, "r+" repairs it in place. fd is a descriptor of the caller's,
  // which is duplicated, or -1 to open the path.
  int open(const std::string& path, int fd, ZR_U32 preAllocUnit, ZR_U32 bufferSize, const std::string& mode);

  int seek(long long offset, int whence) override;
  ZR_U64 getCurPos() override { return mBase + static_cast<ZR_U64>((mWriting ? mWriteAt : mReadAt) - mBuffer.get()); }
  ZR_U64 size() override;
  long long getFileSize() override { return static_cast<long long>(size()); }
  // Writes what is buffered, makes a written file durable and closes it.
  int close() override;

  int truncFile(long long length);
  int RegistProcOpt(const ZrOUTPUTStreamProcOptS* opt);

  // Hands what is buffered to the kernel.
  int flush();
  // The same, and waits until it is on the disk, where syncing is on and possible.
  int sync();
  bool syncs() const { return mSyncs; }
  // From now on write-out is started for every 256 KiB behind the position, so that a sync finds little left to do.
  void keepWritingOut() { mWritesOut = mSyncs; }

  // Stands at this position and forgets everything written behind it, in the buffer and in the file.
  void dropFrom(ZR_U64 position);

  // Pre-allocates in units of this from the present end of the file on.
  void setPreAllocUnit(ZR_U32 unit);
  // The most that is read ahead of a small read; 0 for the whole buffer.
  void setReadAhead(ZR_U32 length) { mReadAhead = length; }
  // Lets the kernel fetch a range that is going to be read.
  void expect(ZR_U64 offset, ZR_U32 length);
  // Reads somewhere else without moving the position or losing what was read ahead. Answers whether all was there.
  bool peek(ZR_U64 offset, ZR_U8* data, ZR_U32 length);
  // Whether a read was ever refused by the system, as opposed to reaching the end.
  bool readFailed() const { return mReadFailed; }

 protected:
  ZR_U32 rawRead(ZR_U8* data, ZR_U32 length) override;
  ZR_U32 rawWrite(const ZR_U8* data, ZR_U32 length) override;

 private:
  bool openDescriptor(const std::string& path, int fd, bool writes, bool creates);
  ZR_U32 buffered() const { return static_cast<ZR_U32>(mWriteAt - mBuffer.get()); }
  bool startWriting();
  bool startReading();
  void emptyWriteWindow();
  bool writeOut(const ZR_U8* data, ZR_U32 length, ZR_U32* moved);
  void afterWrite();
  bool cutTo(ZR_U64 length);
  void preAllocate();

  std::string mPath;
  int mFd = -1;
  bool mMayWrite = false;
  bool mWriting = false;  // the buffer is a write window
  bool mWritten = false;  // the file was changed
  bool mReadFailed = false;
  bool mSyncs = false;
  bool mWritesOut = false;
  ZR_U32 mPreAllocUnit = 0;
  ZR_U32 mReadAhead = 0;
  ZR_U32 mBufferSize = 0;
  ZR_U32 mDirectSize = 0;  // a piece of this size does not go through the buffer
  std::unique_ptr<ZR_U8[]> mBuffer;
  ZR_U64 mBase = 0;          // offset in the file of the buffer's first byte
  ZR_U64 mFileEnd = 0;       // length of the file as the kernel has it
  ZR_U64 mAllocatedEnd = 0;  // up to here space was asked for
  ZR_U64 mWrittenOut = 0;    // up to here write-out was started
  ZrOUTPUTStreamProcOptS mProcOpt = {};
};

}  // namespace zrmp4
