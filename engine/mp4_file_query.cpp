#include <algorithm>
#include <limits>

#include "base/annex_k.h"
#include "base/log.h"
#include "box/audio_entry.h"
#include "box/file_boxes.h"
#include "box/mdat_atom.h"
#include "box/sample_tables.h"
#include "box/track_boxes.h"
#include "box/vemo_atom.h"
#include "engine/mp4_file.h"

namespace zrmp4 {
namespace {

std::string TrakPath(ZR_U32 index, const char* rest) { return "moov/trak[" + std::to_string(index) + "]" + rest; }

ZR_U32 Saturated(ZR_U64 value) {
  return static_cast<ZR_U32>(std::min<ZR_U64>(value, std::numeric_limits<ZR_U32>::max()));
}

// The box at a path below the root, or null with a message.
template <typename Box>
Box* FindOrLog(Atom& root, const std::string& path) {
  auto* box = dynamic_cast<Box*>(root.GetDescendant(path));
  return box != nullptr ? box : ZR_FAIL(nullptr, "could not find %s atom\n", path.c_str());
}

template <typename Entry>
void CopyAudioFormat(const Entry& entry, zrMP4_AUDIO_INFO_S* audio) {
  audio->u32Channels = entry.channels();
  audio->u32SampleRate = entry.sampleRate();
  audio->u16SampleSize = entry.sampleSize();
}

}  // namespace

ZR_U32 MP4File::ParseFileInfo() {
  if (mMoov == nullptr) return ZR_ERR_MP4_READ;
  if (mMoov->GetDescendant("trak[0]/mdia/minf/stbl/co64") != nullptr) mUseCo64 = ZR_TRUE;
  const VemoAtom* config = vemo();
  mBackupUnit = config != nullptr ? config->backupUnit() : 0;
  auto* mvhd = dynamic_cast<MvhdAtom*>(mMoov->GetChild("mvhd"));
  if (mvhd == nullptr) return ZR_FAIL(ZR_ERR_MP4_READ, "could not find mvhd atom\n");
  mMovieDuration = static_cast<ZR_U64>(mvhd->getDuration()) * mMovieTimeScale / MP4_TIMESCALE_S2MS;

  for (ZR_U32 i = 0; i < TrakCount(); ++i) {
    auto* trak = dynamic_cast<TrakAtom*>(GetDescendant(TrakPath(i, "")));
    if (trak == nullptr) return ZR_ERR_MP4_READ;
    if (trak->Parse() != 0) return ZR_ERR_MP4_NO_TRACK_CFG;
    zrMP4_TRACK_INFO_S info = {};
    if (GetTrackInfo(i, &info) != 0 || !mTracks.reserve()) continue;
    const int frameRate = static_cast<int>(
        info.enTrackType == ZR_MP4_TRACK_META ? info.stMetaInfo.u32FrameRate : info.stVideoInfo.u32FrameRate);
    Track* track = Track::create(mStream.get(), trak, mMdat, info.fSpeed, frameRate, mConstantRate);
    if (track != nullptr) mTracks.add(track);
  }
  return 0;
}

Atom* MP4File::GetAtom(const std::string& path) {
  if (mWriting) {
    for (Track* track : mTracks) SettleBoxes(track);
  }
  return GetDescendant(path);
}

// The traks of the tree: those read from a file or created for a recording.
ZR_U32 MP4File::TrakCount() const {
  ZR_U32 count = 0;
  for (const Atom* box = mMoov != nullptr ? mMoov->firstChild() : nullptr; box != nullptr; box = box->nextSibling()) {
    if (box->type() == "trak") ++count;
  }
  return count;
}

ZR_U32 MP4File::Duration() {
  auto* mvhd = Find<MvhdAtom>("moov/mvhd");
  return mvhd != nullptr ? mvhd->getDuration() : ZR_FAIL(0u, "could not find mvhd atom\n");
}

ZR_U32 MP4File::GetHandleName(std::string& name) {
  auto* hdlr = Find<HdlrAtom>("moov/trak[0]/mdia/hdlr");
  if (hdlr == nullptr) return ZR_FAIL(ZR_ERR_MP4_ATOM_NOT_FOUND, "could not find trak[0] handlr atom\n");
  hdlr->getHandlrName(name);
  return 0;
}

ZR_U32 MP4File::GetTimeScale(ZR_U32 index, ZR_U32* timeScale) {
  auto* mdhd = FindOrLog<MdhdAtom>(*this, TrakPath(index, "/mdia/mdhd"));
  if (mdhd == nullptr) return kInternalFailure;
  *timeScale = mdhd->timeScale();
  return 0;
}

ZR_U32 MP4File::GetTrackCodecType(ZR_U32 index, zrMP4_CODECID_E* codec) {
  auto* trak = FindOrLog<TrakAtom>(*this, TrakPath(index, ""));
  if (trak == nullptr) return ZR_ERR_MP4_READ;
  *codec = GetMp4Codec(trak->codecType());
  return 0;
}

Track* MP4File::GetTrackHandle(ZR_U32 index) {
  const Atom* trak = GetDescendant(TrakPath(index, ""));
  for (Track* track : mTracks) {
    if (track->trak() == trak) return track;
  }
  return nullptr;
}

ZR_U32 MP4File::GetTrackInfo(ZR_U32 index, zrMP4_TRACK_INFO_S* info) {
  if (index >= TrakCount()) return ZR_ERR_MP4_ILLEGAL_PARAM;
  auto* hdlr = dynamic_cast<HdlrAtom*>(GetDescendant(TrakPath(index, "/mdia/hdlr")));
  if (hdlr == nullptr) return ZR_FAIL(kInternalFailure, "getHandlrName fail\n");
  std::string name;
  hdlr->getHandlrName(name);
  if (CopyText(info->aszHdlrName, sizeof(info->aszHdlrName), name.data(), name.size()) != 0) {
    return ZR_FAIL(kInternalFailure, "snprintf_s HandlrName error\n");
  }
  info->enTrackType = hdlr->kind() == HdlrAtom::KIND_VIDEO   ? ZR_MP4_TRACK_VIDEO
                      : hdlr->kind() == HdlrAtom::KIND_SOUND ? ZR_MP4_TRACK_AUDIO
                                                             : ZR_MP4_TRACK_META;
  if (GetTimeScale(index, &info->u32TimeScale) != 0) return ZR_FAIL(kInternalFailure, "getTimeScale failed\n");
  zrMP4_CODECID_E codec = ZR_MP4_CODEC_H264;
  if (GetTrackCodecType(index, &codec) != 0) return ZR_FAIL(kInternalFailure, "getTrackCodecType failed\n");
  if (GetTrackMediaInfo(index, codec, info) != 0) return ZR_FAIL(kInternalFailure, "MP4_GetMediaInfo failed\n");
  return 0;
}

ZR_U32 MP4File::GetTrackMediaInfo(ZR_U32 index, zrMP4_CODECID_E codec, zrMP4_TRACK_INFO_S* info) {
  auto* tkhd = FindOrLog<TkhdAtom>(*this, TrakPath(index, "/tkhd"));
  auto* mvhd = tkhd != nullptr ? FindOrLog<MvhdAtom>(*this, "moov/mvhd") : nullptr;
  auto* stsz = mvhd != nullptr ? FindOrLog<StszAtom>(*this, TrakPath(index, "/mdia/minf/stbl/stsz")) : nullptr;
  if (stsz == nullptr) return kInternalFailure;
  const ZR_U32 durationMs = mvhd->getDuration();
  if (durationMs == 0) return ZR_FAIL(kInternalFailure, "get duration zero illegal\n");

  FillFromTrackConfig(index, info);
  const ZR_U32 frameRate = Saturated(static_cast<ZR_U64>(stsz->getCount()) * 1000 / durationMs);
  if (info->enTrackType == ZR_MP4_TRACK_VIDEO) {
    zrMP4_VIDEO_INFO_S& video = info->stVideoInfo;
    video.u32Width = tkhd->width();
    video.u32Height = tkhd->height();
    video.enCodecID = codec;
    // Deliberate: of the whole file, whatever the share of the other tracks.
    video.u32BitRate = Saturated(Saturated(mStream->size() * 1000 / durationMs) * 8ull);
    video.u32FrameRate = frameRate;
    return 0;
  }
  if (info->enTrackType == ZR_MP4_TRACK_META) {
    zrMP4_META_INFO_S& meta = info->stMetaInfo;
    meta.u32Width = tkhd->width();
    meta.u32Height = tkhd->height();
    meta.u32FrameRate = frameRate;
    meta.enCodecID = codec;
    return 0;
  }
  return FillAudioInfo(index, codec, &info->stAudioInfo);
}

// Speed and the audio frame's size stand only in the private configuration of a crash-safe recording.
void MP4File::FillFromTrackConfig(ZR_U32 index, zrMP4_TRACK_INFO_S* info) {
  info->fSpeed = 1.0F;
  if (vemo() == nullptr) {
    ZR_NOTE(0, "could not find 'mdat/vemo' atom for trackinfo\n");
    return;
  }
  const TrackCfgS* config = vemo()->getTrackInfoByIndex(index);
  if (config == nullptr || config->info.enTrackType != info->enTrackType) {
    ZR_NOTE(0, "get 'mdat/vemo' track info error\n");
    return;
  }
  info->fSpeed = config->info.fSpeed;
  if (info->enTrackType == ZR_MP4_TRACK_AUDIO) {
    info->stAudioInfo.u32SamplePerFrame = config->info.stAudioInfo.u32SamplePerFrame;
  }
}

ZR_U32 MP4File::FillAudioInfo(ZR_U32 index, zrMP4_CODECID_E codec, zrMP4_AUDIO_INFO_S* audio) {
  const std::string stsd = TrakPath(index, "/mdia/minf/stbl/stsd/");
  if (codec == ZR_MP4_CODEC_AAC || codec == ZR_MP4_CODEC_MP3) {
    const auto* entry = FindOrLog<Mp4aAtom>(*this, stsd + "mp4a");
    if (entry == nullptr) return kInternalFailure;
    CopyAudioFormat(*entry, audio);
  } else if (codec == ZR_MP4_CODEC_G711A || codec == ZR_MP4_CODEC_G711U) {
    const auto* entry = FindOrLog<G711Atom>(*this, stsd + (codec == ZR_MP4_CODEC_G711A ? "alaw" : "ulaw"));
    if (entry == nullptr) return kInternalFailure;
    CopyAudioFormat(*entry, audio);
  }
  audio->enCodecID = codec;
  return 0;
}

}  // namespace zrmp4
