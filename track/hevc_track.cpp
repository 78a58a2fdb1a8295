#include "track/hevc_track.h"

#include "base/log.h"

namespace zrmp4 {
namespace {

constexpr ZR_U8 kIdrWithLeading = 19;  // IDR_W_RADL
constexpr ZR_U8 kVps = 32;
constexpr ZR_U8 kSps = 33;
constexpr ZR_U8 kPps = 34;
constexpr ZR_U8 kPrefixSei = 39;
constexpr ZR_U32 kLongestSet = 65535;
constexpr char kClass[] = "HEVCTrack";

}  // namespace

HEVCTrack::HEVCTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate)
    : NalTrack(stream, trak, mdat, speed, frameRate, constantRate),
      mHvcc(trak->Find<HvccAtom>("mdia/minf/stbl/stsd/hvc1/hvcC")) {}

int HEVCTrack::GetNaluType(const ZR_U8* nalu, ZR_U32 len, ZR_U8* type) {
  if (len == 0) return ZR_FAIL(-1, "nalu len of hevc is invlid:%u\n", len);
  if (nalu == nullptr || type == nullptr) {
    LogTrackArgument(kClass, "GetNaluType");
    return -1;
  }
  // Deliberate: the forbidden bit is not masked off, so that a unit which has it set is none of those known.
  *type = nalu[0] >> 1;
  return 0;
}

bool HEVCTrack::IsParameterSetNalu(ZR_U8 type) {
  return type == kVps || type == kSps || type == kPps || type == kPrefixSei;
}

int HEVCTrack::HandleParameterSetNalu(const ZR_U8* nalu, ZR_U32 len, ZR_U8 type) {
  if (len == 0 || len > kLongestSet) {
    return ZR_FAIL(-1, "parment set(type:%d) len(%u) of hevc stream is illegal\n", type, len);
  }
  if (mHvcc == nullptr) {
    LogTrackArgument(kClass, "HandleParameterSetNalu", "mHvcc null");
    return -1;
  }
  const ZR_U16 size = static_cast<ZR_U16>(len);
  switch (type) {
    case kVps:
      return mHvcc->AddVps(nalu, size);
    case kSps:
      return mHvcc->AddSps(nalu, size);
    case kPps:
      return mHvcc->AddPps(nalu, size);
    case kPrefixSei:
      return mHvcc->AddSei(nalu, size);
    default:
      return 0;
  }
}

const NalTrack::Texts& HEVCTrack::texts() const {
  static constexpr Texts kTexts = {"Get nalu type of hevc failed\n", "handle hevc parameter set failed\n",
                                   "hevc sample is invalid\n"};
  return kTexts;
}

// Deliberate: IDR_N_LP (20) and CRA (21) do not make a key frame.
bool HEVCTrack::isIdrSlice(ZR_U8 type) const { return type == kIdrWithLeading; }

int HEVCTrack::checkConfiguration() const {
  if (mHvcc != nullptr) return 0;
  LogTrackArgument(kClass, "ParseSample", "mHvcc null");
  return -1;
}

bool HEVCTrack::hasParameterSets() const { return mHvcc->hasVps() && mHvcc->hasSps() && mHvcc->hasPps(); }

void HEVCTrack::logBadKeySample(ZR_U8 /*idrSlices*/) const { ZR_NOTE(ZR_LOG_LEVEL_ERROR, "HEVC I Frame error\n"); }

}  // namespace zrmp4
