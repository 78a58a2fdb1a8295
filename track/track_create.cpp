#include "base/log.h"
#include "base/make_or_null.h"
#include "track/audio_track.h"
#include "track/avc_track.h"
#include "track/data_track.h"
#include "track/hevc_track.h"
#include "track/prores_track.h"
#include "track/track.h"

namespace zrmp4 {
namespace {

using Maker = Track* (*)(IOStream*, TrakAtom*, MdatAtom*, float speed, int frameRate, ZR_BOOL constantRate);

template <typename Kind>
Track* Make(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate, ZR_BOOL constantRate) {
  return NewOrNull<Kind>(stream, trak, mdat, speed, frameRate, constantRate);
}

struct Kind {
  TrakAtom::TrakType type;
  TrakAtom::CodecType codec;
  Maker make;
};
constexpr Kind kKinds[] = {
    {TrakAtom::TRAK_VIDEO, TrakAtom::CODEC_AVC, Make<AVCTrack>},
    {TrakAtom::TRAK_VIDEO, TrakAtom::CODEC_HEVC, Make<HEVCTrack>},
    {TrakAtom::TRAK_VIDEO, TrakAtom::CODEC_PRORES_PROXY, Make<PRORESTrack>},
    {TrakAtom::TRAK_VIDEO, TrakAtom::CODEC_PRORES_LT, Make<PRORESTrack>},
    {TrakAtom::TRAK_VIDEO, TrakAtom::CODEC_PRORES_422, Make<PRORESTrack>},
    {TrakAtom::TRAK_VIDEO, TrakAtom::CODEC_PRORES_HQ, Make<PRORESTrack>},
    {TrakAtom::TRAK_AUDIO, TrakAtom::CODEC_AAC, Make<AACTrack>},
    {TrakAtom::TRAK_AUDIO, TrakAtom::CODEC_MP3, Make<AudioTrack>},
    {TrakAtom::TRAK_AUDIO, TrakAtom::CODEC_G711A, Make<AudioTrack>},
    {TrakAtom::TRAK_AUDIO, TrakAtom::CODEC_G711U, Make<AudioTrack>},
};

Maker MakerFor(const TrakAtom& trak) {
  if (trak.trakType() == TrakAtom::TRAK_META) return Make<DataTrack>;
  for (const Kind& kind : kKinds) {
    if (kind.type == trak.trakType() && kind.codec == trak.codecType()) return kind.make;
  }
  return nullptr;
}

}  // namespace

Track* Track::create(IOStream* stream, TrakAtom* trak, MdatAtom* mdat, float speed, int frameRate,
                     ZR_BOOL constantRate) {
  const Maker make = MakerFor(*trak);
  if (make == nullptr) return ZR_FAIL(nullptr, "track codec error\n");
  Track* track = make(stream, trak, mdat, speed, frameRate, constantRate);
  return track != nullptr ? track : ZR_FAIL(nullptr, "no memory:%s\n", "track");
}

}  // namespace zrmp4
