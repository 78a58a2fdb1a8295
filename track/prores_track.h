#pragma once

#include "box/prores_entry.h"
#include "track/video_track.h"

namespace zrmp4 {

// ProRes frames are stored whole, every one is a sync sample, and the first tells how the picture is to be shown.
class PRORESTrack : public VideoTrack {
 public:
  PRORESTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate);

  ZR_U32 ExamineSample(const Mp4Sample& sample) override;
  ZR_U32 WriteSample(const Mp4Sample& sample) override;
  int ParseSample(const Mp4Sample& sample) override;
  int ParseMediaParameter(RecordWalker& walker) override;

 protected:
  int cutFrame(const ZR_U8* data, ZR_U32 len, Mp4Sample* out) override;
  int cutStoredFrame(const ZR_U8* data, ZR_U32 len, Mp4Sample* out) override { return cutFrame(data, len, out); }
  bool everySampleIsSync() const override { return true; }

 private:
  ProresAtom* mEntry;
  bool mHasData = false;  // a sample that is not empty was recorded
};

}  // namespace zrmp4
