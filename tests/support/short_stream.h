#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include "stream/mem_io_stream.h"

// A file in memory whose transfers break after a number of bytes, reading and writing counted together.
class ShortStream : public zrmp4::MemIOStream {
 public:
  static constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

  explicit ShortStream(const std::vector<std::uint8_t>& data = {}, std::uint64_t breaksAfter = kNever) {
    MemIOStream::rawWrite(data.data(), static_cast<ZR_U32>(data.size()));
    seek(0, 0);
    mLeft = breaksAfter;
  }

  std::vector<std::uint8_t> data() { return {MemIOStream::data(), MemIOStream::data() + size()}; }

 protected:
  ZR_U32 rawRead(ZR_U8* data, ZR_U32 length) override { return spent(MemIOStream::rawRead(data, allowed(length))); }
  ZR_U32 rawWrite(const ZR_U8* data, ZR_U32 length) override {
    return spent(MemIOStream::rawWrite(data, allowed(length)));
  }

 private:
  ZR_U32 allowed(ZR_U32 length) const { return static_cast<ZR_U32>(std::min<std::uint64_t>(length, mLeft)); }
  ZR_U32 spent(ZR_U32 moved) {
    mLeft -= moved;
    return moved;
  }

  std::uint64_t mLeft = kNever;  // more than a stream can hold
};
