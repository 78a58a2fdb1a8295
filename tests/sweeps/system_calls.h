#pragma once

#include <cstddef>
#include <vector>

#include "tests/support/recording.h"

// What the library did to a file, below its stream: the calls of the linked program go through here.

struct FileOperation {
  enum Kind { kWrite, kTruncate, kSync };

  Kind kind;
  std::uint64_t offset;  // or the new length
  Data bytes;
};

// Watches the system calls on files of this thread's code while it lives; one at a time.
class SystemCalls {
 public:
  enum class Fault { kNone, kIo, kNoSpace, kInterrupted, kShort, kUnknown, kUnsupported };

  SystemCalls();
  ~SystemCalls();
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;

  // The call after this many fails so, and every one behind it if it is for good. Interrupted calls are so once, short
  // ones move half of what they were asked to; those that move nothing cannot be short. What a kernel does not know or
  // support are its calls beyond POSIX.
  void failAfter(std::size_t calls, Fault fault, bool forGood = false);
  // From now on long runs of one byte are left out of the file, as holes, and nothing is noted.
  void keepOnlyHeaders() { mOnlyHeaders = true; }
  bool onlyHeaders() const { return mOnlyHeaders; }
  std::size_t count() const { return mTransfers.size(); }

  // Of each call, whether it was to move more than a byte.
  const std::vector<bool>& transfers() const { return mTransfers; }

  const std::vector<FileOperation>& operations() const { return mOperations; }
  std::uint64_t bytesRead() const { return mBytesRead; }

  // For the wrappers: whether the call may go on; errno is set otherwise. length is what the call is to move; one that
  // never waits is not interrupted. unsupported is the error of a call that a kernel or a file system may not have.
  bool enter(std::size_t* length, bool waits, int unsupported);
  void note(FileOperation operation) { mOperations.push_back(std::move(operation)); }
  void noteRead(std::size_t bytes) { mBytesRead += bytes; }

 private:
  std::vector<FileOperation> mOperations;
  std::vector<bool> mTransfers;
  std::uint64_t mBytesRead = 0;
  std::size_t mFailAt = static_cast<std::size_t>(-1);
  Fault mFault = Fault::kNone;
  bool mForGood = false;
  bool mOnlyHeaders = false;
};
