#pragma once

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

namespace zrmp4 {

// Calls of Linux that a C library may lack (the build looks for them and sets ZRMP4_HAS_...) and that an old kernel may
// refuse. Each has a way to do without; 0 and -1 with errno as usual.

// Makes a call again as long as signals interrupt it.
template <typename Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

// Writes pieces at an offset, all of them in one call or else the first alone. Answers how many bytes were taken, which
// may be fewer than were given, as of any write.
inline ssize_t WritePieces(int fd, const struct iovec* pieces, int count, off_t at) {
#if defined(ZRMP4_HAS_PWRITEV)
  if (count > 1) {
    const ssize_t written = ::pwritev(fd, pieces, count, at);
    if (written >= 0 || errno != ENOSYS) return written;
  }
#endif
  static_cast<void>(count);
  return ::pwrite(fd, pieces[0].iov_base, pieces[0].iov_len, at);
}

// Reserves space without changing the length of the file.
inline int ReserveSpace(int fd, off_t from, off_t length) {
#if defined(ZRMP4_HAS_FALLOCATE) && defined(FALLOC_FL_KEEP_SIZE)
  return ::fallocate(fd, FALLOC_FL_KEEP_SIZE, from, length);
#else
  static_cast<void>(fd), static_cast<void>(from), static_cast<void>(length);
  errno = ENOSYS;
  return -1;
#endif
}

// Starts to write a range out to the disk, without waiting for it.
inline int StartWriteOut(int fd, off_t from, off_t length) {
#if defined(ZRMP4_HAS_SYNC_FILE_RANGE) && defined(SYNC_FILE_RANGE_WRITE)
  return ::sync_file_range(fd, from, length, SYNC_FILE_RANGE_WRITE);
#else
  static_cast<void>(fd), static_cast<void>(from), static_cast<void>(length);
  errno = ENOSYS;
  return -1;
#endif
}

}  // namespace zrmp4
