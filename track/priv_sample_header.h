#pragma once

#include "stream/field_io.h"

namespace zrmp4 {

// The record in front of every frame of a crash-safe recording, and in front of every copy of a user box (track 0).
struct PrivSampleHeader {
  static constexpr ZR_U32 kSize = 20;  // bytes in the file

  PrivSampleHeader() = default;
  PrivSampleHeader(ZR_U32 track, ZR_BOOL key, ZR_U64 time, ZR_U32 bytes)
      : trackId(track), isKey(key != ZR_FALSE ? 1 : 0), pts(time), size(bytes) {}

  // In one go: it stands in front of every frame.
  int Write(IOStream* stream) const {
    ZR_U8* const space = stream != nullptr ? stream->claim(kSize) : nullptr;
    if (space == nullptr) return PrivSampleHeader(*this).writeThrough(stream);  // a copy: this stays in registers
    store(space);
    return 0;
  }
  int Read(IOStream* stream) { return ReadFields(*this, stream); }
  bool fields(FieldIo& io) { return io.be32(trackId) && io.be32(isKey) && io.be64(pts) && io.be32(size); }

  ZR_U32 trackId = 0;  // 0 marks a user box
  ZR_U32 isKey = 0;    // 0 or 1
  ZR_U64 pts = 0;      // microseconds
  ZR_U32 size = 0;     // bytes that follow

 private:
  void store(ZR_U8* to) const {  // kSize bytes
    IOStream::storeBe32(to, trackId);
    IOStream::storeBe32(to + 4, isKey);
    IOStream::storeBe32(to + 8, static_cast<ZR_U32>(pts >> 32));
    IOStream::storeBe32(to + 12, static_cast<ZR_U32>(pts));
    IOStream::storeBe32(to + 16, size);
  }
  int writeThrough(IOStream* stream) const;
};

}  // namespace zrmp4
