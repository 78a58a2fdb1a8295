#pragma once

#include "track/video_track.h"

namespace zrmp4 {

// H.264 and H.265: frames are access units of NAL units, which come with start codes and are stored behind their
// lengths. Parameter sets are captured for the sample entry and stay in the sample as well.
class NalTrack : public VideoTrack {
 public:
  using VideoTrack::VideoTrack;

  static constexpr ZR_U32 kNalLengthSize = 4;  // bytes in front of each NAL unit in the file
  static constexpr ZR_U32 kStartCodeScanLen = 4;
  static constexpr ZR_U32 kMinFrameLen = 5;
  static constexpr ZR_U32 kMaxNalus = Mp4Sample::kMaxParts - 1;

  // Whether a start code ends within the first four bytes.
  static bool IsAnnexbFrame(const ZR_U8* data);
  // Cut a frame into its NAL units, at start codes or by their lengths. 0 or -1.
  static int AnnexbToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out);
  static int Mp4AuToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample& out);

  int FrameToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out) override;
  ZR_U32 ExamineSample(const Mp4Sample& sample) override;
  int ParseMediaParameter(RecordWalker& walker) override;
  bool RecoverFrame(const PrivSampleHeader& header, ZR_U64 dataOffset, bool lastBeforeZeros) override;

  virtual int GetNaluType(const ZR_U8* nalu, ZR_U32 len, ZR_U8* type) = 0;
  virtual bool IsParameterSetNalu(ZR_U8 type) = 0;
  // Hands a parameter set to the sample entry; other units are none of its business and succeed.
  virtual int HandleParameterSetNalu(const ZR_U8* nalu, ZR_U32 len, ZR_U8 type) = 0;

  // Whether some key frame so far had more than one IDR slice.
  bool multiSliceKey() const { return mMultiSliceKey; }

 protected:
  // What the codecs log differently.
  struct Texts {
    const char* noNaluType;
    const char* badParameterSet;
    const char* badSample;
  };

  virtual const Texts& texts() const = 0;

  int writePieces(const Mp4Sample& sample) override;
  int cutStoredFrame(const ZR_U8* data, ZR_U32 len, Mp4Sample* out) override;
  bool everySampleIsSync() const override { return false; }

  // ParseSample of a codec's track, which befriends this class and adds isIdrSlice, checkConfiguration,
  // hasParameterSets and logBadKeySample. A template, so that nothing is called for each unit.
  template <typename Codec>
  static int ParseUnits(Codec& track, const Mp4Sample& sample);

 private:
  // The parameter sets of a frame in the file.
  struct StoredUnits {
    ZR_U32 count = 0;
    ZR_U64 offset[kMaxNalus];
    ZR_U32 size[kMaxNalus];
    ZR_U8 type[kMaxNalus];
  };

  static int cutAtStartCodes(const ZR_U8* data, ZR_U32 len, Mp4Sample* out);
  bool findParameterSets(const PrivSampleHeader& header, ZR_U64 dataOffset, StoredUnits* sets);
  void takeParameterSets(const StoredUnits& sets);

  bool mMultiSliceKey = false;
};

template <typename Codec>
int NalTrack::ParseUnits(Codec& track, const Mp4Sample& sample) {
  ZR_U8 idrSlices = 0;
  for (ZR_U32 i = 0; i < sample.partCount; ++i) {
    const ZR_U8* const unit = sample.partData[i];
    ZR_U8 type = 0;
    if (track.GetNaluType(unit, sample.partSize[i], &type) != 0) return ZR_FAIL(-1, "%s", track.texts().noNaluType);
    if (track.IsParameterSetNalu(type)) {
      if (track.HandleParameterSetNalu(unit, sample.partSize[i], type) != 0) {
        return ZR_FAIL(-1, "%s", track.texts().badParameterSet);
      }
    } else if (track.isIdrSlice(type)) {
      ++idrSlices;
    }
  }
  if (track.checkConfiguration() != 0) return -1;
  if (sample.isKey && (idrSlices == 0 || !track.hasParameterSets())) {
    track.logBadKeySample(idrSlices);
    return -1;
  }
  if (idrSlices >= 2) track.mMultiSliceKey = true;
  return 0;
}

}  // namespace zrmp4
