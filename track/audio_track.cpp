#include "track/audio_track.h"

#include "base/log.h"
#include "codec/aac_parser.h"

namespace zrmp4 {

AudioTrack::AudioTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int /*frameRate*/,
                       ZR_BOOL /*constantRate*/)
    : Track(stream, trak, mdat, speed, ZR_TRUE) {
  const ZR_U32 rate = trak->sampleRate();
  mClock.setDuration(rate != 0 ? trak->samplesPerFrame() * (trak->timeScale() / rate) : 0);
}

int AudioTrack::FrameToSample(const ZR_U8* data, ZR_U32 len, ZR_U64 pts, ZR_BOOL isKey, Mp4Sample* out) {
  if (data == nullptr || len == 0) return ZR_FAIL(-1, "audio frame is invalid\n");
  if (out == nullptr) {
    LogTrackArgument("AudioTrack", "FrameToSample");
    return -1;
  }
  ZR_U32 headerLen = 0;
  if (ParseFrameHeader(data, len, &headerLen) != 0) return ZR_FAIL(-1, "audio frame header is invalid\n");
  out->partCount = 1;
  out->partData[0] = data + headerLen;
  out->partSize[0] = len - headerLen;
  out->totalSize = len - headerLen;
  out->pts = pts;
  out->isKey = isKey;
  return 0;
}

ZR_U32 AudioTrack::ExamineSample(const Mp4Sample& sample) {
  return sample.totalSize != 0 ? 0 : ZR_FAIL(ZR_ERR_MP4_ILLEGAL_PARAM, "audio frame is invalid\n");
}

bool AudioTrack::RecoverFrame(const PrivSampleHeader& header, ZR_U64 /*dataOffset*/, bool /*lastBeforeZeros*/) {
  return header.size != 0;
}

int AudioTrack::ParseFrameHeader(const ZR_U8* /*data*/, ZR_U32 /*len*/, ZR_U32* headerLen) {
  if (headerLen == nullptr) {
    LogTrackArgument("AudioTrack", "ParseFrameHeader");
    return -1;
  }
  *headerLen = 0;
  return 0;
}

AACTrack::AACTrack(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate)
    : AudioTrack(stream, trak, mdat, speed, frameRate, constantRate),
      mEsds(trak->Find<AacAtom>("mdia/minf/stbl/stsd/mp4a/esds")) {}

int AACTrack::ParseFrameHeader(const ZR_U8* data, ZR_U32 len, ZR_U32* headerLen) {
  ZrAACAdtsHeaderS header = {};
  if (AacParser::ParseAdtsHeader(data, len, *headerLen, header) != 0) return -1;
  if (*headerLen == 0) return ZR_FAIL(-1, "audio frame has no header\n");
  // A frame that is refused after this is followed by another before the track has one: the first accepted decides.
  if (sampleCount() == 0 && mEsds != nullptr) mEsds->setFrequencyIndex(header.samplingFrequencyIndex);
  return 0;
}

bool AACTrack::RecoverFrame(const PrivSampleHeader& header, ZR_U64 dataOffset, bool lastBeforeZeros) {
  return header.size != 0 && (!lastBeforeZeros || endsInData(header, dataOffset));
}

}  // namespace zrmp4
