#include <algorithm>

#include "base/log.h"
#include "box/audio_entry.h"
#include "box/file_boxes.h"
#include "box/hevc_entry.h"
#include "box/track_boxes.h"
#include "engine/mp4_file.h"

namespace zrmp4 {
namespace {

// A duration in another time scale: multiplied first, then divided, where the product has more than 64 bits too.
ZR_U64 Converted(ZR_U64 duration, ZR_U32 from, ZR_U32 to) {
  if (from == 0) return duration;
  constexpr ZR_U64 kMost = ~ZR_U64{0};
  const ZR_U64 whole = duration / from;
  if (to != 0 && whole >= kMost / to) return kMost;
  return whole * to + duration % from * to / from;
}

}  // namespace

ZR_U32 MP4File::RemoveAllTrack() {
  const std::lock_guard<std::mutex> lock(mLock);
  if (mTracks.count() == 0) return 0;
  if (mWriting) {
    mFinishing = true;
    if (mBackupUnit != 0 && WriteVemoAtom() != 0) return ZR_ERR_MP4_WRITE_TAIL;
    if (WriteTail() != 0) return ZR_ERR_MP4_WRITE_TAIL;
  }
  for (Track* track : mTracks) {
    track->DestroyTmpStbl();
    TrakAtom* trak = track->trak();
    mMoov->RemoveChild(trak);
    delete trak;
  }
  ReleaseTracks();
  mParents.clear();
  mTailWritten = true;
  mUserAtomNum = 0;
  return 0;
}

// The movie box and what follows it; then the size of the media data, which is what makes the file a finished one.
// After a failure the stream stands at the end of the media data again.
ZR_U32 MP4File::WriteTail() {
  const ZR_U64 mediaEnd = mStream->getCurPos();
  ZR_U32 result = WriteMoov();
  if (result == 0) result = WriteUserAtom();
  if (result == 0) {
    const ZR_U64 boxesEnd = mStream->getCurPos();
    const ZR_U64 end = boxesEnd + FreeGap(boxesEnd);
    const bool whole = WriteFreeBox() == 0 && Flush() == 0 && Truncate(end) == 0 && Sync() == 0;
    result = whole ? RewriteMdatSize() : ZR_ERR_MP4_WRITE_TAIL;
  }
  if (result != 0) mStream->dropFrom(mediaEnd);
  return result;
}

ZR_U32 MP4File::WriteMoov() {
  if (FinishTracks() != 0 || SettleMovieTimes() != 0) return ZR_ERR_MP4_WRITE_TAIL;
  return mMoov->Write(mStream.get()) == 0 ? 0 : ZR_ERR_MP4_WRITE_TAIL;
}

// Closes each track's tables; the caller's hook sees a track's duration once per try.
int MP4File::FinishTracks() {
  for (Track* track : mTracks) {
    if (track->FinishWrite() != 0) return -1;
    ZR_U64 duration = track->Duration();
    TrakAtom* trak = track->trak();
    if (mRemoveHook != nullptr) mRemoveHook(reinterpret_cast<ZR_MP4_HANDLE>(this), trak->timeScale(), &duration);
    trak->setMdhdDuration(duration);
    SettleBoxes(track);
  }
  return 0;
}

// Makes the sizes of a track's boxes those of what is written of them.
void MP4File::SettleBoxes(Track* track) {
  auto* hvcc = track->trak()->Find<HvccAtom>("mdia/minf/stbl/stsd/hvc1/hvcC");
  if (hvcc != nullptr) hvcc->settleSize();
  track->settleSizes();
}

ZR_U32 MP4File::SettleMovieTimes() {
  constexpr ZR_U64 kLongest = 0xFFFFFFFF;
  ZR_U32 timeScale = mMovieTimeScale;
  for (Track* track : mTracks) {
    const ZR_U32 result = SettleTrack(track, timeScale);
    if (result != 0) return result;
  }
  if (mMovieDuration > kLongest) {
    // The movie header has 32 bits: a long recording is told in milliseconds.
    timeScale = MP4_TIMESCALE_S2MS;
    for (Track* track : mTracks) {
      const ZR_U32 result = SettleTrack(track, timeScale);
      if (result != 0) return result;
    }
    mMovieDuration = std::min(mMovieDuration, kLongest);
  }
  auto* mvhd = dynamic_cast<MvhdAtom*>(mMoov->GetChild("mvhd"));
  if (mvhd == nullptr) return ZR_FAIL(ZR_ERR_MP4_WRITE_TAIL, "write moov get mvhd fail\n");
  mvhd->update(mMovieDuration, timeScale, mTracks.count() + 1);
  return 0;
}

ZR_U32 MP4File::SettleTrack(Track* track, ZR_U32 movieTimeScale) {
  TrakAtom* trak = track->trak();
  const ZR_U64 duration = Converted(trak->mdhdDuration(), trak->timeScale(), movieTimeScale);
  trak->setTkhdDuration(duration);
  if (trak->trakType() == TrakAtom::TRAK_VIDEO) mMovieDuration = duration;
  // A metadata track may be described with any codec.
  const bool isAudio = trak->trakType() == TrakAtom::TRAK_AUDIO;
  if (isAudio && (trak->codecType() == TrakAtom::CODEC_AAC || trak->codecType() == TrakAtom::CODEC_MP3)) {
    auto* esds = trak->Find<EsdsAtom>("mdia/minf/stbl/stsd/mp4a/esds");
    if (esds == nullptr) return ZR_FAIL(ZR_ERR_MP4_WRITE_TAIL, "write moov get esds of mp4a fail\n");
    esds->setBitrates(track->AvgBitrate(), track->AvgBitrate());
  }
  auto* elst = trak->Find<ElstAtom>("edts/elst");
  if (elst != nullptr) elst->update(static_cast<ZR_U32>(duration), trak->speed());
  return 0;
}

ZR_U32 MP4File::WriteUserAtom() { return OutputTopUserAtom(mStream.get()) == 0 ? 0 : ZR_ERR_MP4_WRITE_TAIL; }

}  // namespace zrmp4
