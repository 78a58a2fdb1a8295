#pragma once

#include "box/audio_entry.h"
#include "track/track.h"

namespace zrmp4 {

// Audio frames: one piece each, all of the same duration, never empty.
class AudioTrack : public Track {
 public:
  AudioTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate);

  int FrameToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out) override;
  ZR_U32 ExamineSample(const Mp4Sample& sample) override;
  bool RecoverFrame(const PrivSampleHeader& header, ZR_U64 dataOffset, bool lastBeforeZeros) override;

  // The length of what stands in front of the frame and is not stored. 0 or -1.
  virtual int ParseFrameHeader(const ZR_U8* data, ZR_U32 len, ZR_U32* headerLen);
};

// AAC comes in ADTS frames and is stored without their headers.
class AACTrack : public AudioTrack {
 public:
  AACTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate);

  int ParseFrameHeader(const ZR_U8* data, ZR_U32 len, ZR_U32* headerLen) override;
  bool RecoverFrame(const PrivSampleHeader& header, ZR_U64 dataOffset, bool lastBeforeZeros) override;

 private:
  AacAtom* mEsds;
};

}  // namespace zrmp4
