#pragma once

#include <memory>

#include "box/atom.h"
#include "stream/field_io.h"

namespace zrmp4 {

// One track as the caller described it, with what the box adds to it.
struct TrackCfgS {
  ZR_U32 recordLength;  // bytes in the file
  ZR_U32 trackIndex;    // 1 for the first track created
  zrMP4_TRACK_INFO_S info;
};
static_assert(sizeof(TrackCfgS) == sizeof(zrMP4_TRACK_INFO_S) + 8, "the info follows the two words directly");

// The track configuration that stands in mdat in front of the frames: all that a repair needs to rebuild the movie
// box of a recording that was cut off before it had one.
class VemoAtom : public Atom {
 public:
  static constexpr ZR_U32 MAX_TRACKS = 6;

  VemoAtom(ZR_U32 backupUnit, ZR_BOOL useCo64, ZR_BOOL constantRate, ZR_U32 preAllocLen);
  explicit VemoAtom(const AtomHeader& header) : Atom(header) {}

  int readData(IOStream* stream) override;
  int writeData(IOStream* stream) override;
  int Dump(IOStream* stream, ZR_U32 depth) override;

  // Appends a record and grows the box by it. Not after the box was written.
  int addTrackInfo(const zrMP4_TRACK_INFO_S* info);
  bool full() const { return mTrackCount >= MAX_TRACKS; }

  // MAX_TRACKS slots, of which the first *count are in use.
  const std::unique_ptr<TrackCfgS>* getTrackInfo(ZR_U32* count) const;
  // The record in a slot, counted from 0, or null.
  const TrackCfgS* getTrackInfoByIndex(ZR_U32 index) const;

  ZR_U32 backupUnit() const { return mBackupUnit; }
  ZR_BOOL useCo64() const { return mUseCo64 != 0 ? ZR_TRUE : ZR_FALSE; }
  ZR_BOOL constantRate() const { return mConstantRate != 0 ? ZR_TRUE : ZR_FALSE; }
  ZR_U32 preAllocLen() const { return mPreAllocLen; }
  ZR_U32 trackCount() const { return mTrackCount; }
  // False when the box could not be read to its end; it has no records then.
  bool complete() const { return mComplete; }
  // Whether a box that was read is as it was written, and no zeros of reserved space took the place of its end.
  bool credible() const;

 private:
  bool head(FieldIo& io);
  int readRecords(FieldIo& io);

  ZR_U32 mFormatWord = 2;
  ZR_U32 mTrackCount = 0;
  ZR_U32 mBackupUnit = 0;
  ZR_U8 mUseCo64 = 0;
  ZR_U8 mConstantRate = 0;
  ZR_U32 mPreAllocLen = 0;
  std::unique_ptr<TrackCfgS> mTracks[MAX_TRACKS];
  bool mComplete = true;
};

}  // namespace zrmp4
