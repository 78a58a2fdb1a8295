#pragma once

#include <string>

#include "stream/io_stream.h"

namespace zrmp4 {

// The 8 or 16 bytes in front of every box.
class AtomHeader {
 public:
  AtomHeader() = default;
  AtomHeader(const char* boxType, ZR_U32 boxSize) : size(boxSize), type(boxType) {}
  AtomHeader(const AtomHeader&) = default;
  AtomHeader& operator=(const AtomHeader&) = default;
  virtual ~AtomHeader() = default;

  int Read(IOStream* stream);
  int Write(IOStream* stream);

  // Length of the header itself. A size of 1 with no large size counts as 8.
  ZR_U32 Size() const { return size == 1 && largeSize != 0 ? 16 : 8; }

  // What the box declares as its whole length, with streamSize for a box that runs to the end.
  ZR_U64 Length(ZR_U64 streamSize) const;

  // What lies between the position and the end that this box declares.
  ZR_U64 RemainingInBox(IOStream* stream) const;
  // The same, or up to the end of the stream when that comes first.
  ZR_U64 Remaining(IOStream* stream) const;

  // A box that runs to the end has no size to change.
  void increaseAtomSize(ZR_U32 n) {
    if (size > 1) {
      size += n;
    } else if (size == 1) {
      largeSize += n;
    }
  }
  void decreaseAtomSize(ZR_U32 n) {
    if (size > 1) {
      size -= n;
    } else if (size == 1) {
      largeSize -= n;
    }
  }

  // Patches the size that stands in the stream; the position is then behind the size.
  int rewriteAtomSize(IOStream* stream);

  ZR_U64 offset = 0;          // where the header was last read or written
  ZR_U32 size = 0;            // 0: to the end of the stream; 1: see largeSize
  std::string type = "0000";  // this until it is read
  ZR_U64 largeSize = 0;
};

}  // namespace zrmp4
