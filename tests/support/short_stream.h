#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "stream/io_stream.h"

// A file in memory whose transfers break after a number of bytes, reading and writing counted together.
class ShortStream : public zrmp4::IOStream {
 public:
  static constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

  explicit ShortStream(std::vector<std::uint8_t> data = {}, std::uint64_t breaksAfter = kNever)
      : mData(std::move(data)), mLeft(breaksAfter) {}

  int seek(long long offset, int whence) override {
    const long long from = whence == 0 ? 0 : static_cast<long long>(whence == 1 ? mPosition : mData.size());
    if (offset < -from) {
      errno = EINVAL;
      return -1;
    }
    mPosition = static_cast<std::uint64_t>(from + offset);
    return 0;
  }
  ZR_U64 getCurPos() override { return mPosition; }
  ZR_U64 size() override { return mData.size(); }
  long long getFileSize() override { return static_cast<long long>(mData.size()); }
  int close() override { return 0; }

  const std::vector<std::uint8_t>& data() const { return mData; }

 protected:
  ZR_U32 rawRead(ZR_U8* data, ZR_U32 length) override {
    const std::uint64_t inFile = mPosition < mData.size() ? mData.size() - mPosition : 0;
    const std::size_t moved = take(std::min<std::uint64_t>(length, inFile));
    if (moved != 0) std::memcpy(data, mData.data() + mPosition, moved);
    mPosition += moved;
    return static_cast<ZR_U32>(moved);
  }
  ZR_U32 rawWrite(const ZR_U8* data, ZR_U32 length) override {
    const std::size_t moved = take(length);
    if (mPosition + moved > mData.size()) mData.resize(static_cast<std::size_t>(mPosition) + moved);
    if (moved != 0) std::memcpy(mData.data() + mPosition, data, moved);
    mPosition += moved;
    return static_cast<ZR_U32>(moved);
  }

 private:
  std::size_t take(std::uint64_t wanted) {
    const std::uint64_t moved = std::min(wanted, mLeft);
    if (mLeft != kNever) mLeft -= moved;
    return static_cast<std::size_t>(moved);
  }

  std::vector<std::uint8_t> mData;
  std::uint64_t mPosition = 0;
  std::uint64_t mLeft;
};
