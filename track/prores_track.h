#pragma once

#include "box/prores_entry.h"
#include "track/video_track.h"

namespace zrmp4 {

// ProRes frames are stored whole, every one is a sync sample, and the first tells how the picture is to be shown.
class PRORESTrack : public VideoTrack {
 public:
  PRORESTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate);

  int FrameToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out) override;
  ZR_U32 ExamineSample(const Mp4Sample& sample) override;
  ZR_U32 WriteSample(const Mp4Sample& sample) override;
  int ParseSample(const Mp4Sample& sample) override;
  int ParseMediaParameter(RecordWalker& walker) override;

 protected:
  int cutStoredFrame(const ZR_U8* data, ZR_U32 len, Mp4Sample* out) override;
  bool everySampleIsSync() const override { return true; }

 private:
  ProresAtom* mEntry;
  bool mHasData = false;  // a sample that is not empty was recorded
};

}  // namespace zrmp4
