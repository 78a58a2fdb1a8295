#include <algorithm>

#include "base/annex_k.h"
#include "base/log.h"
#include "base/make_or_null.h"
#include "box/child_types.h"
#include "box/file_boxes.h"
#include "box/mdat_atom.h"
#include "box/user_def_atom.h"
#include "box/vemo_atom.h"
#include "engine/mp4_file.h"

namespace zrmp4 {
namespace {

Atom* NewFtyp(const AtomHeader& header) { return new (std::nothrow) FtypAtom(header, FtypAtom::FORMAT_MP4); }

}  // namespace

MP4File::~MP4File() { ReleaseTracks(); }

ZR_U32 MP4File::InitAfterOpen(const std::string& mode) {
  mMode = mode;
  mWriting = mode == "w";
  if (mWriting) {
    if (InitAtoms() != 0) return ZR_FAIL(ZR_ERR_MP4_OPEN, "init atoms failed\n");
    if (WriteFtyp() != 0) return ZR_FAIL(ZR_ERR_MP4_OPEN, "write ftyp failed\n");
    if (WriteMdatHeader() != 0) return ZR_FAIL(ZR_ERR_MP4_OPEN, "write mdat header failed\n");
    if (mBackupUnit != 0) {
      if (AllocPaddingBuf() != 0) return ZR_FAIL(ZR_ERR_MP4_OPEN, "init padding failed\n");
      mStream->keepWritingOut();
    }
    return 0;
  }
  if (mode != "r" && !(mode == "r+" && mRepairMode)) {
    return ZR_FAIL(ZR_ERR_MP4_OPEN, "file open mode is not support\n");
  }
  mFileSize = mStream->size();
  constexpr ZR_U32 kReadAhead = 4096;  // the head of the file is small, and the media data is not read
  if (mRepairMode) mStream->setReadAhead(kReadAhead);
  if (mFileSize < 1) return ZR_FAIL(ZR_ERR_MP4_OPEN, "file size is illegal\n");
  TakeMemoryOut();
  if (ReadTopAtoms() != 0) return ZR_FAIL(ZR_ERR_MP4_READ, "read top atom from file failed\n");
  if (mode == "r" && ParseFileInfo() != 0) return ZR_FAIL(ZR_ERR_MP4_OPEN, "Parse file info failed\n");
  // A tree that lacks what could not be read, or found no memory, would tell of another file.
  return mStream->readFailed() || TakeMemoryOut() ? ZR_ERR_MP4_OPEN : 0;
}

int MP4File::InitAtoms() {
  auto ftyp = MakeOrNull<FtypAtom>(mFormatProfile == 1 ? FtypAtom::FORMAT_MOV : FtypAtom::FORMAT_MP4);
  if (ftyp == nullptr) return ZR_FAIL(-1, "no memory:%s\n", "ftyp");
  mFtyp = ftyp.get();
  AddChild(ftyp.release());

  auto moov = MakeOrNull<MoovAtom>();
  if (moov == nullptr) return ZR_FAIL(-1, "no memory:%s\n", "moov");
  mMoov = moov.get();
  AddChild(moov.release());

  auto mvhd = MakeOrNull<MvhdAtom>(MP4_TIMESCALE, mMovieDuration, 1u);
  if (mvhd == nullptr) return ZR_FAIL(-1, "no memory:%s\n", "mvhd");
  mMoov->AddChild(mvhd.release());

  auto mdat = MakeOrNull<MdatAtom>();
  if (mdat == nullptr) return ZR_FAIL(-1, "no memory:%s\n", "mdat");
  mMdat = mdat.get();
  AddChild(mdat.release());

  if (mBackupUnit == 0) return 0;
  auto vemo = MakeOrNull<VemoAtom>(mBackupUnit, mUseCo64, mConstantRate, mPreAllocLen);
  if (vemo == nullptr) return ZR_FAIL(-1, "no memory:%s\n", "vemo");
  mVemo = vemo.get();
  mMdat->AddChild(vemo.release());
  return 0;
}

int MP4File::AllocPaddingBuf() {
  mPaddingBuf = MakeArrayOrNull<ZR_U8>(MP4_PADDING_BASE_SIZE);
  if (mPaddingBuf == nullptr) return ZR_FAIL(-1, "new padding(%d bytes) failed\n", MP4_PADDING_BASE_SIZE);
  if (memset_s(mPaddingBuf.get(), MP4_PADDING_BASE_SIZE, 0, MP4_PADDING_BASE_SIZE) != 0) {
    FreePaddingBuf();
    return ZR_FAIL(-1, "init (%d bytes) padding failed\n", MP4_PADDING_BASE_SIZE);
  }
  return 0;
}

// Reading -------------------------------------------------------------------------------------------------------------

ZR_U32 MP4File::ReadTopAtoms() {
  header().type = "root";
  while (mStream->getCurPos() < mFileSize) {
    const ZR_U64 start = mStream->getCurPos();
    Atom* box = ReadChild(mStream.get());
    if (box == nullptr) break;
    AddChild(box);
    if (box->type() == "ftyp") mFtyp = dynamic_cast<FtypAtom*>(box);
    if (box->type() == "moov" && mMoov == nullptr) mMoov = dynamic_cast<MoovAtom*>(box);  // the one that paths find
    if (box->type() == "mdat" && mMdat == nullptr) mMdat = dynamic_cast<MdatAtom*>(box);
    if (mStream->getCurPos() <= start) break;
  }
  if (mMdat != nullptr) mVemo = mMdat->GetChild("vemo");
  return firstChild() != nullptr ? 0 : ZR_ERR_MP4_READ;
}

Atom* MP4File::ReadChild(IOStream* stream) {
  static constexpr ChildType kTypes[] = {{"ftyp", NewFtyp},
                                         {"mdat", NewChild<MdatAtom>},
                                         {"moov", NewChild<MoovAtom>},
                                         {"free", NewChild<FreeAtom>},
                                         {"skip", NewChild<SkipAtom>}};
  AtomHeader header;
  if (header.Read(stream) != 0) return ZR_FAIL(nullptr, "read child atom header fail\n");
  Atom* (*make)(const AtomHeader&) = nullptr;
  for (const ChildType& known : kTypes) {
    if (header.type == known.type) make = known.make;
  }
  if (header.Length(stream->size()) < header.Size() ||
      (make == nullptr && header.size - header.Size() > stream->remaining())) {
    return ZR_FAIL(nullptr, "illegal atom header, offset:%llu\n", static_cast<unsigned long long>(header.offset));
  }
  std::unique_ptr<Atom> child(make != nullptr ? make(header) : NewChild<UserDefAtom>(header));
  if (child == nullptr) return ZR_FAIL(nullptr, "new %s atom no memory\n", header.type.c_str());
  if (child->ReadContent(stream) != 0) return ZR_FAIL(nullptr, "read child atom data fail\n");
  // The media data of a cut recording runs to the end of the file, whatever its size says.
  if (mRepairMode && header.type == "mdat" && stream->seek(0, 2) != 0) return ZR_FAIL(nullptr, "seekto EOF fail\n");
  return child.release();
}

// Tracks --------------------------------------------------------------------------------------------------------------

Track* MP4File::AddTrack(const zrMP4_TRACK_INFO_S* info) {
  const std::lock_guard<std::mutex> lock(mLock);
  if (mMoov == nullptr) return ZR_FAIL(nullptr, "add track get moov fail\n");
  if (!recording()) return ZR_FAIL(nullptr, "add track fail, file is not being recorded\n");
  return MakeTrack(info);
}

// A trak under moov and the track that fills it.
Track* MP4File::MakeTrack(const zrMP4_TRACK_INFO_S* info) {
  std::unique_ptr<TrakAtom> trak(CreateTrakAtom(info));
  if (trak == nullptr) return ZR_FAIL(nullptr, "add track fail due to create track atom fail\n");
  const int frameRate = info->enTrackType == ZR_MP4_TRACK_VIDEO  ? static_cast<int>(info->stVideoInfo.u32FrameRate)
                        : info->enTrackType == ZR_MP4_TRACK_META ? static_cast<int>(info->stMetaInfo.u32FrameRate)
                                                                 : 0;
  std::unique_ptr<Track> track(
      Track::create(mStream.get(), trak.get(), mMdat, info->fSpeed, frameRate, mConstantRate));
  if (track == nullptr || !mTracks.reserve() || (mVemoWritten && track->CreateTmpStbl() != 0)) {
    return ZR_FAIL(nullptr, "add track fail due to track create fail\n");
  }
  // From here on nothing but the record can fail: a record without its track would be taken for the next one's.
  if (recording() && mVemo != nullptr && !Protect(info)) return nullptr;
  mMoov->AddChild(trak.release());
  mTracks.add(track.get());
  track->keepSizes();
  mSettleFrom = mMaxFileSize - std::min(mMaxFileSize, ZR_U64{Track::kMostKept} * mTracks.count());
  return track.release();
}

// Takes a track into the configuration that repair goes by, where there is still room. False when memory is out.
bool MP4File::Protect(const zrMP4_TRACK_INFO_S* info) {
  if (!mVemoWritten && vemo()->addTrackInfo(info) == 0) return true;
  if (!mVemoWritten && !vemo()->full()) return false;
  ZR_NOTE(1, "track[%u] is not protected, it cannot be repaired after a cut\n", mTracks.count() + 1);
  return true;
}

TrakAtom* MP4File::CreateTrakAtom(const zrMP4_TRACK_INFO_S* info) {
  TrakAtom::TrakType kind = TrakAtom::TRAK_VIDEO;
  zrMP4_CODECID_E codec = info->stVideoInfo.enCodecID;
  if (info->enTrackType == ZR_MP4_TRACK_VIDEO) {
    mMovieTimeScale = info->u32TimeScale;
  } else if (info->enTrackType == ZR_MP4_TRACK_AUDIO) {
    kind = TrakAtom::TRAK_AUDIO;
    codec = info->stAudioInfo.enCodecID;
  } else {
    kind = TrakAtom::TRAK_META;
    codec = info->stMetaInfo.enCodecID;
  }
  std::unique_ptr<TrakAtom> trak(TrakAtom::create(kind, mTracks.count() + 1, info->aszHdlrName, GetTrakCodec(codec),
                                                  info->u32TimeScale, mUseCo64));
  if (trak == nullptr) return ZR_FAIL(nullptr, "create trakAtom fail\n");
  if (trak->init() != 0) return ZR_FAIL(nullptr, "init trakAtom fail\n");
  trak->setSpeed(info->fSpeed);
  if (kind == TrakAtom::TRAK_VIDEO) {
    trak->setPicSize(info->stVideoInfo.u32Width, info->stVideoInfo.u32Height);
  } else if (kind == TrakAtom::TRAK_AUDIO) {
    const zrMP4_AUDIO_INFO_S& audio = info->stAudioInfo;
    trak->SetAudioConfig(static_cast<ZR_U16>(audio.u32Channels), audio.u16SampleSize, audio.u32SampleRate,
                         audio.u32SamplePerFrame);
  } else {
    trak->setPicSize(info->stMetaInfo.u32Width, info->stMetaInfo.u32Height);
  }
  return trak.release();
}

TrakAtom::CodecType MP4File::GetTrakCodec(zrMP4_CODECID_E codec) {
  const ZR_U32 value = static_cast<ZR_U32>(codec);
  if (value <= 1) return static_cast<TrakAtom::CodecType>(value);
  return value >= 3 && value <= 12 ? static_cast<TrakAtom::CodecType>(value - 1) : TrakAtom::CODEC_NONE;
}

zrMP4_CODECID_E MP4File::GetMp4Codec(TrakAtom::CodecType codec) {
  const ZR_U32 value = static_cast<ZR_U32>(codec);
  if (value <= 1) return static_cast<zrMP4_CODECID_E>(value);
  return static_cast<zrMP4_CODECID_E>(value <= 11 ? value + 1 : 13);
}

}  // namespace zrmp4
