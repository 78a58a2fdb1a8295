#pragma once

#include "box/hevc_entry.h"
#include "track/nal_track.h"

namespace zrmp4 {

class HEVCTrack : public NalTrack {
 public:
  HEVCTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate);

  int GetNaluType(const ZR_U8* nalu, ZR_U32 len, ZR_U8* type) override;
  bool IsParameterSetNalu(ZR_U8 type) override;
  int HandleParameterSetNalu(const ZR_U8* nalu, ZR_U32 len, ZR_U8 type) override;

 protected:
  const Texts& texts() const override;
  bool isIdrSlice(ZR_U8 type) const override;
  int checkConfiguration() override;
  bool hasParameterSets() const override;
  void logBadKeySample(ZR_U8 idrSlices) const override;

 private:
  HvccAtom* mHvcc;
};

}  // namespace zrmp4
