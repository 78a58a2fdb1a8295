#include "track/avc_track.h"

#include "base/log.h"

namespace zrmp4 {
namespace {

constexpr ZR_U8 kIdrSlice = 5;
constexpr ZR_U8 kSps = 7;
constexpr ZR_U8 kPps = 8;
constexpr ZR_U32 kLongestSet = 65535;

}  // namespace

AVCTrack::AVCTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate)
    : NalTrack(stream, trak, mdat, speed, frameRate, constantRate),
      mAvcc(trak->Find<AvccAtom>("mdia/minf/stbl/stsd/avc1/avcC")) {}

int AVCTrack::GetNaluType(const ZR_U8* nalu, ZR_U32 len, ZR_U8* type) {
  if (len == 0) return ZR_FAIL(-1, "nalu len is invlid:%u\n", len);
  if (nalu == nullptr || type == nullptr) return ZR_FAIL(-1, "naluType or nalu is null\n");
  *type = nalu[0] & 0x1F;
  return 0;
}

bool AVCTrack::IsParameterSetNalu(ZR_U8 type) { return type == kSps || type == kPps; }

int AVCTrack::HandleParameterSetNalu(const ZR_U8* nalu, ZR_U32 len, ZR_U8 type) {
  if (len == 0 || len > kLongestSet) return ZR_FAIL(-1, "parmentSet len(%u) of avc stream is illegal\n", len);
  if (mAvcc == nullptr) return -1;
  const ZR_U16 size = static_cast<ZR_U16>(len);
  if (type == kSps) return mAvcc->AddSps(nalu, size);
  return type == kPps ? mAvcc->AddPps(nalu, size) : 0;
}

const NalTrack::Texts& AVCTrack::texts() const {
  static constexpr Texts kTexts = {"Get nalu type of avc failed\n", "handle avc parameter set failed\n",
                                   "avc sample is invalid\n"};
  return kTexts;
}

bool AVCTrack::isIdrSlice(ZR_U8 type) const { return type == kIdrSlice; }

bool AVCTrack::hasParameterSets() const { return mAvcc != nullptr && mAvcc->hasSps() && mAvcc->hasPps(); }

void AVCTrack::logBadKeySample(ZR_U8 idrSlices) const {
  ZR_NOTE(ZR_LOG_LEVEL_ERROR, "AVC I Frame error, I slice nalu cnt[%d]\n", idrSlices);
}

}  // namespace zrmp4
