#include "tools/nal_source.h"

#include <cstring>

#include "tools/status.h"

namespace tool {
namespace {

constexpr size_t kStartCode = 3;  // 00 00 01; a zero byte in front of it belongs to it
constexpr size_t kNalHeader = 3;  // bytes that tell what a NAL unit is

constexpr uint8_t kFirstOfPicture = 0x80;

}  // namespace

// Leaves mScanned on the next start code.
bool AnnexBSource::findStartCode() {
  for (;;) {
    const uint8_t* const data = mStream.data();
    const size_t size = mStream.available();
    while (mScanned + kStartCode <= size) {
      const void* const one = std::memchr(data + mScanned + 2, 1, size - mScanned - 2);
      mScanned = (one ? static_cast<size_t>(static_cast<const uint8_t*>(one) - data) : size) - 2;
      if (one && data[mScanned] == 0 && data[mScanned + 1] == 0) return true;
      mScanned += one ? 1 : 0;
    }
    if (mScanned > kMaxFrame) refuse("no end of an access unit within 64 MiB");
    if (!mStream.need(size + 1)) return false;
  }
}

bool AnnexBSource::measure(Extent& extent) {
  extent.isKey = false;
  mScanned = 0;
  bool hasPicture = false;
  size_t leading = 0;      // where the NAL units in front of the next picture begin, when there are some
  size_t sequenceEnd = 0;  // where an end-of-sequence unit stands
  bool atFront = true;
  while (findStartCode()) {
    mStream.need(mScanned + kStartCode + kNalHeader);
    const uint8_t* const data = mStream.data();
    const size_t begin = mScanned > 0 && data[mScanned - 1] == 0 ? mScanned - 1 : mScanned;
    for (size_t i = 0; atFront && i < begin; ++i) {
      if (data[i] != 0) refuse("no start code");
    }
    atFront = false;

    uint8_t header[kNalHeader] = {};
    const size_t left = mStream.available() - mScanned - kStartCode;
    std::memcpy(header, data + mScanned + kStartCode, left < kNalHeader ? left : kNalHeader);
    Extent flags;
    flags.isKey = false;
    const Nal nal = classify(header, flags);
    if (header[0] != data[mScanned + kStartCode]) mStream.change(mScanned + kStartCode, header[0]);
    if (nal == Nal::kFirstSlice && hasPicture) return finish(extent, leading != 0 ? leading : begin, sequenceEnd);
    if (nal == Nal::kFirstSlice || nal == Nal::kSlice) {
      hasPicture = true;
      leading = 0;
      extent.isKey = extent.isKey || flags.isKey;
    }
    if (nal == Nal::kLeading && hasPicture && leading == 0) leading = begin;
    if (nal == Nal::kEndOfSequence && hasPicture && sequenceEnd == 0) sequenceEnd = begin;
    mScanned += kStartCode;
  }
  if (atFront && mStream.available() > 0) refuse("no start code");
  return hasPicture && finish(extent, mStream.available(), sequenceEnd);
}

// Zero bytes that fill up behind a NAL unit are no part of it. Nor is the end of a sequence kept: the library takes a
// start code within the last four bytes of a frame for payload, and a recording starts each sequence with a key frame.
bool AnnexBSource::finish(Extent& extent, size_t unitEnd, size_t sequenceEnd) const {
  extent.size = sequenceEnd != 0 && sequenceEnd < unitEnd ? sequenceEnd : unitEnd;
  while (extent.size > 0 && mStream.data()[extent.size - 1] == 0) --extent.size;
  extent.skip = unitEnd - extent.size;
  return true;
}

AnnexBSource::Nal AnnexBSource::classify(uint8_t* header, Extent& extent) {
  return mIsHevc ? classifyHevc(header, extent) : classifyAvc(header, extent);
}

AnnexBSource::Nal AnnexBSource::classifyAvc(const uint8_t* header, Extent& extent) const {
  const int type = header[0] & 0x1F;
  extent.isKey = type == 5;
  switch (type) {
    case 1:
    case 2:
    case 5:
      // first_mb_in_slice, an Exp-Golomb code: a leading one bit is 0.
      return (header[1] & kFirstOfPicture) != 0 ? Nal::kFirstSlice : Nal::kSlice;
    case 3:
    case 4:
      return Nal::kSlice;
    case 10:
    case 11:
      return Nal::kEndOfSequence;
    case 6:
    case 7:
    case 8:
    case 9:
    case 14:
    case 15:
    case 16:
    case 17:
    case 18:
      return Nal::kLeading;
    default:
      return Nal::kTrailing;
  }
}

// The library takes an IDR picture that may have leading pictures for a key frame, and no other. One that has none is
// recorded as such a picture, which it is as well.
AnnexBSource::Nal AnnexBSource::classifyHevc(uint8_t* header, Extent& extent) {
  constexpr int kIdrWithLeading = 19;
  constexpr int kIdrWithoutLeading = 20;
  if ((header[0] >> 1 & 0x3F) == kIdrWithoutLeading) {
    header[0] = static_cast<uint8_t>((header[0] & 0x81) | kIdrWithLeading << 1);
  }
  const int type = header[0] >> 1 & 0x3F;
  const bool baseLayer = (header[0] & 1) == 0 && header[1] >> 3 == 0;
  if (type < 32) {
    if (!baseLayer) return Nal::kTrailing;
    extent.isKey = type == kIdrWithLeading;
    if (type >= 16 && type <= 23 && !extent.isKey && !mToldUnflagged) {
      mToldUnflagged = true;
      Warn(mStream.name() +
           ": key frames that are not IDR pictures are recorded without their flag, players cannot seek to them");
    }
    return (header[2] & kFirstOfPicture) != 0 ? Nal::kFirstSlice : Nal::kSlice;
  }
  if (type == 36 || type == 37) return Nal::kEndOfSequence;
  const bool isLeading = (type >= 32 && type <= 35) || type == 39 || (type >= 41 && type <= 44) ||
                         (type >= 48 && type <= 55);
  return isLeading ? Nal::kLeading : Nal::kTrailing;
}

}  // namespace tool
