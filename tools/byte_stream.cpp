#include "tools/byte_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tools/status.h"

namespace tool {
namespace {

constexpr size_t kReadSize = 65536;
constexpr size_t kReadAhead = 16u << 20;  // of an input that nobody waits for
constexpr int kStopCheck = 200;           // milliseconds

}  // namespace

ByteStream::~ByteStream() {
  if (mFd != STDIN_FILENO) ::close(mFd);
}

bool ByteStream::need(size_t count) {
  while (available() < count && !mEnded) mPool.fill(*this);
  return available() >= count;
}

void ByteStream::drop(size_t count) {
  mBegin += count;
  mPosition += count;
}

void ByteStream::readSome() {
  // Dropped bytes make room once they outnumber those in use, so that a byte is moved once on average.
  if (mBegin > mBuffer.size() / 2) {
    mBuffer.erase(mBuffer.begin(), mBuffer.begin() + static_cast<std::ptrdiff_t>(mBegin));
    mBegin = 0;
  }
  const size_t used = mBuffer.size();
  mBuffer.resize(used + kReadSize);
  const ssize_t count = ::read(mFd, mBuffer.data() + used, kReadSize);
  const int error = errno;
  mBuffer.resize(used + (count > 0 ? static_cast<size_t>(count) : 0));
  if (count == 0) mEnded = true;
  if (count >= 0 || error == EINTR || error == EAGAIN) return;
  errno = error;
  throw SystemFailure(mName, "cannot be read");
}

ByteStream& InputPool::open(const std::string& name) {
  int fd = STDIN_FILENO;
  if (name == "-") {
    for (const auto& stream : mStreams) {
      if (stream->mFd == STDIN_FILENO) throw UsageError("standard input can feed one track only");
    }
  } else {
    // Not blocking, so that named pipes may be opened by their writers in any order.
    fd = ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) throw SystemFailure(name, "cannot be opened");
  }
  mStreams.emplace_back(new ByteStream(*this, name == "-" ? "standard input" : name, fd));
  struct stat status = {};
  if (::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) throw Failure(name + ": is a directory");
  return *mStreams.back();
}

// Reads once from every input that is ready and has room.
void InputPool::fill(ByteStream& wanted) {
  if (*mStop) {
    for (const auto& stream : mStreams) stream->mEnded = true;
    return;
  }
  std::vector<pollfd> waits;
  std::vector<ByteStream*> waiting;
  for (const auto& stream : mStreams) {
    if (stream->mEnded || (stream.get() != &wanted && stream->available() >= kReadAhead)) continue;
    waits.push_back({stream->mFd, POLLIN, 0});
    waiting.push_back(stream.get());
  }
  if (::poll(waits.data(), waits.size(), kStopCheck) <= 0) return;
  for (size_t i = 0; i < waits.size(); ++i) {
    if (waits[i].revents != 0) waiting[i]->readSome();
  }
}

}  // namespace tool
