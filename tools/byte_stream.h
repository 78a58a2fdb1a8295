#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tool {

class InputPool;

// One input, read from front to back through a window that holds a frame and some bytes behind it.
class ByteStream {
 public:
  ~ByteStream();

  const std::string& name() const { return mName; }
  const uint8_t* data() const { return mBuffer.data() + mBegin; }
  void change(size_t at, uint8_t byte) { mBuffer[mBegin + at] = byte; }
  size_t available() const { return mBuffer.size() - mBegin; }
  uint64_t position() const { return mPosition; }  // of data() in the input

  // Waits until count bytes are available; false when the input ends before that. A read error is a Failure.
  bool need(size_t count);
  void drop(size_t count);

 private:
  friend class InputPool;
  ByteStream(InputPool& pool, std::string name, int fd) : mPool(pool), mName(std::move(name)), mFd(fd) {}
  void readSome();

  InputPool& mPool;
  std::string mName;
  int mFd;
  bool mEnded = false;
  std::vector<uint8_t> mBuffer;
  size_t mBegin = 0;  // bytes before it were dropped
  uint64_t mPosition = 0;
};

// All inputs of a recording. Waiting for one reads the others ahead, within a limit: one program that feeds several
// pipes would otherwise stand still on one while we wait for another.
class InputPool {
 public:
  // *stop, set by a signal handler, ends every input.
  explicit InputPool(const volatile std::sig_atomic_t* stop) : mStop(stop) {}

  // "-" is standard input.
  ByteStream& open(const std::string& name);

 private:
  friend class ByteStream;
  void fill(ByteStream& wanted);

  const volatile std::sig_atomic_t* mStop;
  std::vector<std::unique_ptr<ByteStream>> mStreams;
};

}  // namespace tool
