#pragma once

#include "box/hevc_entry.h"
#include "track/nal_track.h"

namespace zrmp4 {

class HEVCTrack final : public NalTrack {
 public:
  HEVCTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate);

  int ParseSample(const Mp4Sample& sample) override { return ParseUnits(*this, sample); }
  int GetNaluType(const ZR_U8* nalu, ZR_U32 len, ZR_U8* type) override;
  bool IsParameterSetNalu(ZR_U8 type) override;
  int HandleParameterSetNalu(const ZR_U8* nalu, ZR_U32 len, ZR_U8 type) override;

 private:
  friend class NalTrack;

  const Texts& texts() const override;
  bool isIdrSlice(ZR_U8 type) const;
  int checkConfiguration() const;
  bool hasParameterSets() const;
  void logBadKeySample(ZR_U8 idrSlices) const;

  HvccAtom* mHvcc;
};

}  // namespace zrmp4
