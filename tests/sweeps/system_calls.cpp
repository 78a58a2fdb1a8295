#include "tests/sweeps/system_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "tests/support/alloc_faults.h"

namespace {

thread_local SystemCalls* tWatcher = nullptr;

bool Enter(std::size_t* length = nullptr, bool waits = true, int unsupported = 0) {
  return tWatcher == nullptr || tWatcher->enter(length, waits, unsupported);
}

void Note(FileOperation::Kind kind, std::uint64_t offset, const void* data = nullptr, ssize_t size = 0) {
  if (tWatcher == nullptr || tWatcher->onlyHeaders() || size < 0) return;
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  tWatcher->note({kind, offset, data != nullptr ? Data(bytes, bytes + size) : Data()});
}

bool LeavesOut(const void* data, std::size_t size) {
  constexpr std::size_t kLong = 16384;
  return tWatcher != nullptr && tWatcher->onlyHeaders() && size >= kLong &&
         std::memcmp(data, static_cast<const char*>(data) + 1, size - 1) == 0;
}

}  // namespace

SystemCalls::SystemCalls() { tWatcher = this; }

SystemCalls::~SystemCalls() { tWatcher = nullptr; }

void SystemCalls::failAfter(std::size_t calls, Fault fault, bool forGood) {
  mFailAt = count() + calls;
  mFault = fault;
  mForGood = forGood;
}

bool SystemCalls::enter(std::size_t* length, bool waits, int unsupported) {
  const std::size_t call = count();
  mTransfers.push_back(length != nullptr && *length > 1);
  if (mFault == Fault::kNone || call < mFailAt || (call > mFailAt && !mForGood)) return true;
  if (mFault == Fault::kInterrupted && !waits) return true;
  if (mFault == Fault::kShort) {
    if (mTransfers.back()) *length /= 2;
    return true;
  }
  if (mFault >= Fault::kUnknown) {
    if (unsupported != 0) errno = mFault == Fault::kUnknown ? ENOSYS : unsupported;
    return unsupported == 0;
  }
  errno = mFault == Fault::kIo ? EIO : mFault == Fault::kNoSpace ? ENOSPC : EINTR;
  return false;
}

extern "C" {

int __real_open64(const char* path, int flags, ...);
int __real_close(int fd);
off64_t __real_lseek64(int fd, off64_t offset, int whence);
int __real_fstat64(int fd, struct stat64* status);
ssize_t __real_pread64(int fd, void* data, std::size_t size, off64_t at);
ssize_t __real_pwrite64(int fd, const void* data, std::size_t size, off64_t at);
int __real_ftruncate64(int fd, off64_t length);
int __real_fallocate64(int fd, int mode, off64_t from, off64_t length);
int __real_sync_file_range(int fd, off64_t from, off64_t length, unsigned flags);
int __real_fdatasync(int fd);
int __real_fsync(int fd);

int __wrap_open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return Enter() ? __real_open64(path, flags, mode) : -1;
}

int __wrap_close(int fd) {
  // Closed it is all the same.
  const bool good = Enter();
  const int result = __real_close(fd);
  return good ? result : -1;
}

off64_t __wrap_lseek64(int fd, off64_t offset, int whence) {
  return Enter(nullptr, false) ? __real_lseek64(fd, offset, whence) : -1;
}

int __wrap_fstat64(int fd, struct stat64* status) { return Enter(nullptr, false) ? __real_fstat64(fd, status) : -1; }

ssize_t __wrap_pread64(int fd, void* data, std::size_t size, off64_t at) {
  const ssize_t moved = Enter(&size) ? __real_pread64(fd, data, size, at) : -1;
  if (tWatcher != nullptr && moved > 0) tWatcher->noteRead(static_cast<std::size_t>(moved));
  return moved;
}

ssize_t __wrap_pwrite64(int fd, const void* data, std::size_t size, off64_t at) {
  if (!Enter(&size)) return -1;
  if (LeavesOut(data, size)) {
    const off64_t end = at + static_cast<off64_t>(size);
    const bool done = __real_lseek64(fd, 0, SEEK_END) >= end || __real_ftruncate64(fd, end) == 0;
    return done ? static_cast<ssize_t>(size) : -1;
  }
  const ssize_t moved = __real_pwrite64(fd, data, size, at);
  Note(FileOperation::kWrite, static_cast<std::uint64_t>(at), data, moved);
  return moved;
}

ssize_t __wrap_pwritev64(int fd, const struct iovec* pieces, int count, off64_t at) {
  if (!Enter(nullptr, true, ENOSYS)) return -1;
  // Each piece alone where one may be left out; a caller goes on after a part anyway.
  if (LeavesOut(pieces[count - 1].iov_base, pieces[count - 1].iov_len)) count = 1;
  const AllocFaults::Pause ownMemory;
  Data joined;
  for (int i = 0; i < count; ++i) {
    const auto* bytes = static_cast<const std::uint8_t*>(pieces[i].iov_base);
    joined.insert(joined.end(), bytes, bytes + pieces[i].iov_len);
  }
  return __wrap_pwrite64(fd, joined.data(), joined.size(), at);
}

int __wrap_ftruncate64(int fd, off64_t length) {
  if (!Enter()) return -1;
  const int result = __real_ftruncate64(fd, length);
  if (result == 0) Note(FileOperation::kTruncate, static_cast<std::uint64_t>(length));
  return result;
}

int __wrap_fallocate64(int fd, int mode, off64_t from, off64_t length) {
  return Enter(nullptr, true, EOPNOTSUPP) ? __real_fallocate64(fd, mode, from, length) : -1;
}

int __wrap_sync_file_range(int fd, off64_t from, off64_t length, unsigned flags) {
  return Enter(nullptr, true, ESPIPE) ? __real_sync_file_range(fd, from, length, flags) : -1;
}

int __wrap_fdatasync(int fd) {
  if (!Enter(nullptr, true, EINVAL)) return -1;
  const int result = __real_fdatasync(fd);
  if (result == 0) Note(FileOperation::kSync, 0);
  return result;
}

int __wrap_fsync(int fd) { return Enter() ? __real_fsync(fd) : -1; }

}  // extern "C"
