#pragma once

#include "tools/frame_source.h"

namespace tool {

// Cuts H.264 or H.265 with start codes into access units.
//
// A unit ends in front of the first slice of the next picture, or of the parameter sets, SEI and delimiters before
// that slice. Which of the two pictures such a NAL unit belongs to is only known when the slice arrives.
class AnnexBSource : public FrameSource {
 public:
  AnnexBSource(ByteStream& stream, bool isHevc) : FrameSource(stream), mIsHevc(isHevc) {}

 private:
  enum class Nal { kFirstSlice, kSlice, kLeading, kTrailing, kEndOfSequence };

  bool measure(Extent& extent) override;
  bool findStartCode();
  Nal classify(uint8_t* header, Extent& extent);
  Nal classifyAvc(const uint8_t* header, Extent& extent) const;
  Nal classifyHevc(uint8_t* header, Extent& extent);
  bool finish(Extent& extent, size_t unitEnd, size_t sequenceEnd) const;

  const bool mIsHevc;
  bool mToldUnflagged = false;
  size_t mScanned = 0;  // bytes of the window in which no start code is left to find
};

}  // namespace tool
