#include "stream/file_io_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/clock.h"
#include "stream/system_calls.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kDirectSize = 32768;         // a piece of this size is not worth a copy,
constexpr ZR_U32 kDirectPart = 12;            // nor one of this part of the buffer, which is small to lose little
constexpr ZR_U32 kSmallestDirect = 5120;
constexpr ZR_U32 kAlignment = 65536;          // buffered writes end on multiples of this, where the buffer is large
constexpr ZR_U32 kDefaultBuffer = 65536;      // when the caller leaves the size open
constexpr ZR_U64 kWriteOutWindow = 1u << 18;  // write-out is started in steps of this

bool SyncWanted() {
  const char* choice = std::getenv("ZR_MP4_SYNC");
  return choice == nullptr || std::strcmp(choice, "off") != 0;
}

// A new name is safe from a power loss once its directory is.
void SyncDirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const int fd = Uninterrupted([&] { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (fd < 0) return;
  Uninterrupted([&] { return ::fsync(fd); });
  ::close(fd);
}

bool CannotSync(int error) { return error == EINVAL || error == ENOSYS || error == EROFS || error == ENOTSUP; }

}  // namespace

FileIOStream::~FileIOStream() {
  if (mFd >= 0) close();
}

bool FileIOStream::openDescriptor(const std::string& path, int fd, bool writes, bool creates) {
  if (fd >= 0) {
    mFd = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
  } else {
    const int flags = (writes ? O_RDWR : O_RDONLY) | (creates ? O_CREAT | O_TRUNC : 0) | O_CLOEXEC;
    mFd = Uninterrupted([&] { return ::open(path.c_str(), flags, 0666); });
  }
  if (mFd < 0) return false;
  if (::lseek(mFd, 0, SEEK_CUR) < 0) return false;  // a pipe or socket
  if (fd >= 0 && writes) {
    // With O_APPEND the kernel would ignore the offset of every write.
    const int flags = ::fcntl(mFd, F_GETFL);
    if (flags < 0 || ((flags & O_APPEND) != 0 && ::fcntl(mFd, F_SETFL, flags & ~O_APPEND) != 0)) return false;
  }
  return true;
}

int FileIOStream::open(const std::string& path, int fd, ZR_U32 preAllocUnit, ZR_U32 bufferSize,
                       const std::string& mode) {
  if (mFd >= 0) return -1;
  const bool creates = mode == "w";
  const bool writes = creates || mode == "r+";
  struct stat status;
  mBufferSize = bufferSize != 0 ? bufferSize : kDefaultBuffer;
  mDirectSize = std::min(std::clamp(mBufferSize / kDirectPart, kSmallestDirect, kDirectSize), mBufferSize + 1);
  mBuffer = std::unique_ptr<ZR_U8[]>(new (std::nothrow) ZR_U8[mBufferSize]);
  if (mBuffer == nullptr || (!writes && mode != "r") || !openDescriptor(path, fd, writes, creates) ||
      ::fstat(mFd, &status) != 0) {
    if (mFd >= 0) ::close(mFd);
    mFd = -1;
    return -1;
  }
  const bool regular = S_ISREG(status.st_mode);
  mPath = path;
  mMayWrite = writes;
  mWritten = creates;
  mPreAllocUnit = creates ? preAllocUnit : 0;
  mSyncs = writes && regular && SyncWanted();
  mFileEnd = static_cast<ZR_U64>(status.st_size);
  if (creates && fd >= 0) {
    if (regular && !cutTo(0)) {
      ::close(mFd);
      mFd = -1;
      return -1;
    }
    mFileEnd = 0;
  }
  mBase = mAllocatedEnd = mWrittenOut = 0;
  mReadFailed = mWritesOut = false;
  // A repair reads a little here and there: what the kernel would read ahead is media data that nobody asks for.
  if (mode == "r+") ::posix_fadvise(mFd, 0, 0, POSIX_FADV_RANDOM);
  if (creates && fd < 0 && mSyncs) SyncDirectoryOf(path);
  mWriteAt = mWriteEnd = mBuffer.get();
  mReadAt = mReadEnd = mBuffer.get();
  return 0;
}

ZR_U64 FileIOStream::size() { return buffered() != 0 ? std::max(mFileEnd, mBase + buffered()) : mFileEnd; }

int FileIOStream::seek(long long offset, int whence) {
  const ZR_U64 from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? getCurPos() : size();
  if (whence < SEEK_SET || whence > SEEK_END || (offset < 0 && static_cast<ZR_U64>(-(offset + 1)) >= from) ||
      (offset > 0 && static_cast<ZR_U64>(offset) > static_cast<ZR_U64>(LLONG_MAX) - from)) {
    errno = EINVAL;
    return -1;
  }
  const ZR_U64 position = from + static_cast<ZR_U64>(offset);
  if (mWriting) {
    if (position == getCurPos()) return 0;
    if (flush() != 0) return -1;
    mBase = position;
    emptyWriteWindow();
    return 0;
  }
  if (position >= mBase && position <= mBase + static_cast<ZR_U64>(mReadEnd - mBuffer.get())) {
    mReadAt = mBuffer.get() + (position - mBase);
  } else {
    mBase = position;
    mReadAt = mReadEnd = mBuffer.get();
  }
  return 0;
}

// Reading -------------------------------------------------------------------------------------------------------------

bool FileIOStream::startReading() {
  if (!mWriting) return mFd >= 0;
  if (flush() != 0) return false;
  mWriting = false;
  mWriteAt = mWriteEnd = mBuffer.get();
  mReadAt = mReadEnd = mBuffer.get();
  return true;
}

ZR_U32 FileIOStream::rawRead(ZR_U8* data, ZR_U32 length) {
  if (!startReading()) return 0;
  ZR_U32 moved = 0;
  while (moved < length) {
    const ZR_U32 left = length - moved;
    const ZR_U32 ready = std::min(left, static_cast<ZR_U32>(mReadEnd - mReadAt));
    if (ready != 0) {
      std::memcpy(data + moved, mReadAt, ready);
      mReadAt += ready;
      moved += ready;
      continue;
    }
    const ZR_U64 position = getCurPos();
    const ZR_U32 ahead = mReadAhead != 0 ? std::min(mReadAhead, mBufferSize) : mBufferSize;
    const bool direct = left >= ahead;
    ZR_U8* const to = direct ? data + moved : mBuffer.get();
    const ssize_t count =
        Uninterrupted([&] { return ::pread(mFd, to, direct ? left : ahead, static_cast<off_t>(position)); });
    if (count < 0) mReadFailed = true;
    if (count <= 0) break;
    if (direct) {
      moved += static_cast<ZR_U32>(count);
      mBase = position + static_cast<ZR_U64>(count);
      mReadAt = mReadEnd = mBuffer.get();
    } else {
      mBase = position;
      mReadAt = mBuffer.get();
      mReadEnd = mBuffer.get() + count;
    }
  }
  return moved;
}

void FileIOStream::expect(ZR_U64 offset, ZR_U32 length) {
  ::posix_fadvise(mFd, static_cast<off_t>(offset), static_cast<off_t>(length), POSIX_FADV_WILLNEED);
}

bool FileIOStream::peek(ZR_U64 offset, ZR_U8* data, ZR_U32 length) {
  if (mFd < 0 || flush() != 0) return false;
  for (ZR_U32 moved = 0; moved < length;) {
    const ssize_t count = Uninterrupted(
        [&] { return ::pread(mFd, data + moved, length - moved, static_cast<off_t>(offset + moved)); });
    if (count < 0) mReadFailed = true;
    if (count <= 0) return false;
    moved += static_cast<ZR_U32>(count);
  }
  return true;
}

// Writing -------------------------------------------------------------------------------------------------------------

bool FileIOStream::startWriting() {
  if (mWriting) return true;
  if (!mMayWrite || mFd < 0) {
    errno = EBADF;
    return false;
  }
  mBase = getCurPos();
  mWriting = true;
  mReadAt = mReadEnd = mBuffer.get();
  emptyWriteWindow();
  return true;
}

void FileIOStream::emptyWriteWindow() {
  // The window ends on a multiple of the alignment, so that the kernel gets whole pages in large steps.
  const ZR_U32 alignment = mBufferSize >= 2 * kAlignment ? kAlignment : mBufferSize >= 8192 ? 4096 : 1;
  mWriteAt = mBuffer.get();
  mWriteEnd = mWriteAt + (mBufferSize - static_cast<ZR_U32>(mBase % alignment));
}

// Writes the buffer and, behind it, data that never went through it. moved counts the bytes of data that reached the
// file. On failure the buffer keeps what is left of it.
bool FileIOStream::writeOut(const ZR_U8* data, ZR_U32 length, ZR_U32* moved) {
  *moved = 0;
  const ZR_U64 started = mProcOpt.pfnUpdateWriteTime != nullptr ? NowMicroseconds() : 0;
  ZR_U32 sent = 0;  // of the buffer
  const ZR_U32 inBuffer = buffered();
  bool failed = false;
  while (sent < inBuffer || *moved < length) {
    struct iovec pieces[2];
    int count = 0;
    if (sent < inBuffer) pieces[count++] = {mBuffer.get() + sent, inBuffer - sent};
    if (*moved < length) pieces[count++] = {const_cast<ZR_U8*>(data) + *moved, length - *moved};
    const off_t at = static_cast<off_t>(mBase + sent + *moved);
    const ssize_t written = Uninterrupted([&] { return WritePieces(mFd, pieces, count, at); });
    if (written <= 0) {
      if (written == 0) errno = ENOSPC;
      failed = true;
      break;
    }
    mWritten = true;
    const ZR_U32 fromBuffer = std::min(static_cast<ZR_U32>(written), inBuffer - sent);
    sent += fromBuffer;
    *moved += static_cast<ZR_U32>(written) - fromBuffer;
  }
  mBase += sent + *moved;
  mFileEnd = std::max(mFileEnd, mBase);
  const ZR_U32 kept = inBuffer - sent;
  if (kept != 0 && sent != 0) std::memmove(mBuffer.get(), mBuffer.get() + sent, kept);
  emptyWriteWindow();
  mWriteAt += kept;
  if (mWriteEnd < mWriteAt) mWriteEnd = mWriteAt;
  if (started != 0) mProcOpt.pfnUpdateWriteTime(mPath.c_str(), NowMicroseconds() - started);
  if (failed) return false;
  afterWrite();
  return true;
}

int FileIOStream::flush() {
  if (!mWriting || buffered() == 0) return 0;
  ZR_U32 moved = 0;
  return writeOut(nullptr, 0, &moved) ? 0 : -1;
}

ZR_U32 FileIOStream::rawWrite(const ZR_U8* data, ZR_U32 length) {
  if (!startWriting()) return 0;
  ZR_U32 moved = 0;
  if (length >= mDirectSize) {
    writeOut(data, length, &moved);
    return moved;
  }
  while (moved < length) {
    const ZR_U32 part = std::min(length - moved, static_cast<ZR_U32>(mWriteEnd - mWriteAt));
    std::memcpy(mWriteAt, data + moved, part);
    mWriteAt += part;
    moved += part;
    if (mWriteAt == mWriteEnd && flush() != 0) {
      // What this call brought is taken back; what was there before stays for a later try.
      const ZR_U32 taken = std::min(moved, buffered());
      mWriteAt -= taken;
      return moved - taken;
    }
  }
  return moved;
}

void FileIOStream::dropFrom(ZR_U64 position) {
  if (!startWriting()) return;
  if (position >= mBase && position - mBase <= buffered()) {
    mWriteAt = mBuffer.get() + (position - mBase);
    return;
  }
  mBase = position;
  emptyWriteWindow();
  // Bytes of the dropped record that the file took must not be met behind a shorter one.
  if (mFileEnd > position && cutTo(position)) {
    mFileEnd = position;
    mAllocatedEnd = std::min(mAllocatedEnd, position);
  }
}

void FileIOStream::afterWrite() {
  if (mPreAllocUnit != 0) preAllocate();
  if (mWritesOut && mBase >= mWrittenOut + kWriteOutWindow) {
    const ZR_U64 end = mBase - mBase % kWriteOutWindow;
    // Where this cannot be, the syncs take longer.
    if (StartWriteOut(mFd, static_cast<off_t>(mWrittenOut), static_cast<off_t>(end - mWrittenOut)) != 0) {
      mWritesOut = false;
    }
    mWrittenOut = end;
  }
}

void FileIOStream::setPreAllocUnit(ZR_U32 unit) {
  mPreAllocUnit = unit;
  mAllocatedEnd = mFileEnd;
}

// Space for the next unit is asked for when the current one is seven eighths full. A file system that cannot, or has
// none left, does without: a full disk is the business of the write that meets it.
void FileIOStream::preAllocate() {
  const ZR_U64 wanted = mBase + mPreAllocUnit / 8;
  if (wanted < mAllocatedEnd) return;
  const ZR_U64 length = ((wanted - mAllocatedEnd) / mPreAllocUnit + 1) * mPreAllocUnit;
  const ZR_U64 started = mProcOpt.pfnUpdateAllocTime != nullptr ? NowMicroseconds() : 0;
  const int result = Uninterrupted(
      [&] { return ReserveSpace(mFd, static_cast<off_t>(mAllocatedEnd), static_cast<off_t>(length)); });
  if (result == 0) {
    mAllocatedEnd += length;
  } else if (errno != ENOSPC) {
    mPreAllocUnit = 0;
  }
  if (started != 0) mProcOpt.pfnUpdateAllocTime(mPath.c_str(), NowMicroseconds() - started);
}

int FileIOStream::sync() {
  if (flush() != 0) return -1;
  if (!mSyncs || !mWritten) return 0;
  if (Uninterrupted([&] { return ::fdatasync(mFd); }) != 0) {
    if (!CannotSync(errno)) return -1;
    mSyncs = mWritesOut = false;
    return 0;
  }
  mWrittenOut = std::max(mWrittenOut, mBase);
  return 0;
}

bool FileIOStream::cutTo(ZR_U64 length) {
  return Uninterrupted([&] { return ::ftruncate(mFd, static_cast<off_t>(length)); }) == 0;
}

int FileIOStream::truncFile(long long length) {
  if (!mMayWrite || length < 0 || flush() != 0) return -1;
  if (!cutTo(static_cast<ZR_U64>(length))) return -1;
  mWritten = true;
  mFileEnd = static_cast<ZR_U64>(length);
  mAllocatedEnd = std::min(mAllocatedEnd, mFileEnd);
  if (!mWriting) {
    mBase = getCurPos();  // bytes read ahead may be gone
    mReadAt = mReadEnd = mBuffer.get();
  }
  return 0;
}

int FileIOStream::RegistProcOpt(const ZrOUTPUTStreamProcOptS* opt) {
  if (opt == nullptr) return -1;
  mProcOpt = *opt;
  return 0;
}

int FileIOStream::close() {
  if (mFd < 0) return -1;
  int result = sync();
  // Space reserved behind the end would stay taken.
  if (mAllocatedEnd > mFileEnd && !cutTo(mFileEnd)) result = -1;
  if (::close(mFd) != 0 && errno != EINTR) result = -1;  // closed it is when interrupted, too
  mFd = -1;
  mWriting = false;
  mWriteAt = mWriteEnd = nullptr;
  mReadAt = mReadEnd = nullptr;
  mBuffer.reset();
  return result;
}

}  // namespace zrmp4
