#include "box/vemo_atom.h"

#include <cstdio>
#include <cstring>

#include "base/annex_k.h"
#include "base/log.h"
#include "base/make_or_null.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kEmptySize = 26;

bool Known(zrMP4_TRACK_TYPE_E type) {
  return type == ZR_MP4_TRACK_VIDEO || type == ZR_MP4_TRACK_AUDIO || type == ZR_MP4_TRACK_META;
}

// A record without the handler name that ends it.
ZR_U32 FixedLength(zrMP4_TRACK_TYPE_E type) { return type == ZR_MP4_TRACK_META ? 36 : 40; }

// The words of an enumeration and of the audio sample size are moved as 32 bits.
template <typename T>
bool Word(FieldIo& io, T& value) {
  ZR_U32 word = static_cast<ZR_U32>(value);
  if (!io.be32(word)) return false;
  if (io.reading()) value = static_cast<T>(word);
  return true;
}

// Deliberate: the codec comes first, and metadata has no fifth word.
bool MediaWords(FieldIo& io, zrMP4_TRACK_INFO_S& info) {
  if (info.enTrackType == ZR_MP4_TRACK_AUDIO) {
    zrMP4_AUDIO_INFO_S& audio = info.stAudioInfo;
    return Word(io, audio.enCodecID) && io.be32(audio.u32Channels) && io.be32(audio.u32SampleRate) &&
           io.be32(audio.u32SamplePerFrame) && Word(io, audio.u16SampleSize);
  }
  if (info.enTrackType == ZR_MP4_TRACK_META) {
    zrMP4_META_INFO_S& meta = info.stMetaInfo;
    return Word(io, meta.enCodecID) && io.be32(meta.u32Width) && io.be32(meta.u32Height) && io.be32(meta.u32FrameRate);
  }
  zrMP4_VIDEO_INFO_S& video = info.stVideoInfo;
  return Word(io, video.enCodecID) && io.be32(video.u32Width) && io.be32(video.u32Height) &&
         io.be32(video.u32BitRate) && io.be32(video.u32FrameRate);
}

// Deliberate: the float's bytes stand the least significant first, unlike every other number of the file.
bool WriteSpeed(FieldIo& io, const float& speed) {
  ZR_U32 bits = 0;
  if (memcpy_s(&bits, sizeof(bits), &speed, sizeof(speed)) != 0) return ZR_FAIL(false, "copy speed failed\n");
  ZR_U8 bytes[4];
  for (unsigned i = 0; i < 4; ++i) bytes[i] = static_cast<ZR_U8>(bits >> 8 * i);
  return io.bytes(bytes, sizeof(bytes));
}

bool ReadSpeed(FieldIo& io, float& speed) {
  ZR_U8 bytes[4] = {};
  if (!io.bytes(bytes, sizeof(bytes))) return false;
  ZR_U32 bits = 0;
  for (unsigned i = 0; i < 4; ++i) bits |= static_cast<ZR_U32>(bytes[i]) << 8 * i;
  if (memcpy_s(&speed, sizeof(speed), &bits, sizeof(bits)) != 0) return ZR_FAIL(false, "copy track speed failed\n");
  return true;
}

bool Name(FieldIo& io, zrMP4_TRACK_INFO_S& info, ZR_U32 length) {
  return length == 0 || io.bytes(reinterpret_cast<ZR_U8*>(info.aszHdlrName), length);
}

// A record ends in a name without zeros, or else in a speed, behind a word that is never 0. A speed that was cut off in
// front of zeros is next to none; that of sound may be anything.
bool IsWhole(const TrackCfgS& track, ZR_U32 number) {
  constexpr float kSlowest = 1e-30f;
  const zrMP4_TRACK_INFO_S& info = track.info;
  const ZR_U32 lastWord = info.enTrackType == ZR_MP4_TRACK_AUDIO  ? info.stAudioInfo.u16SampleSize
                          : info.enTrackType == ZR_MP4_TRACK_META ? info.stMetaInfo.u32FrameRate
                                                                  : info.stVideoInfo.u32FrameRate;
  const ZR_U32 nameLength = track.recordLength - FixedLength(info.enTrackType);
  const bool speedIsWhole =
      info.enTrackType == ZR_MP4_TRACK_AUDIO || info.fSpeed > (nameLength != 0 ? 0.0f : kSlowest);
  return track.trackIndex == number && info.u32TimeScale != 0 && lastWord != 0 && speedIsWhole &&
         strnlen(info.aszHdlrName, sizeof(info.aszHdlrName)) == nameLength;
}

bool WriteRecord(FieldIo& io, TrackCfgS& track) {
  zrMP4_TRACK_INFO_S& info = track.info;
  return io.be32(track.recordLength) && Word(io, info.enTrackType) && io.be32(track.trackIndex) &&
         io.be32(info.u32TimeScale) && MediaWords(io, info) && WriteSpeed(io, info.fSpeed) &&
         Name(io, info, track.recordLength - FixedLength(info.enTrackType));
}

// roomInBox: bytes to the end of the box, the record's among them.
bool ReadRecord(FieldIo& io, TrackCfgS& track, ZR_U64 roomInBox) {
  zrMP4_TRACK_INFO_S& info = track.info;
  if (!io.be32(track.recordLength) || !Word(io, info.enTrackType)) return false;
  if (!Known(info.enTrackType) || track.recordLength > roomInBox) return false;
  if (!io.be32(track.trackIndex) || !io.be32(info.u32TimeScale) || !MediaWords(io, info)) return false;
  if (!ReadSpeed(io, info.fSpeed)) return false;
  const ZR_U32 nameLength = track.recordLength - FixedLength(info.enTrackType);  // wraps for a record too short
  return nameLength < sizeof(info.aszHdlrName) && Name(io, info, nameLength);
}

}  // namespace

VemoAtom::VemoAtom(ZR_U32 backupUnit, ZR_BOOL useCo64, ZR_BOOL constantRate, ZR_U32 preAllocLen)
    : Atom("vemo", kEmptySize),
      mBackupUnit(backupUnit),
      mUseCo64(useCo64 != ZR_FALSE),
      mConstantRate(constantRate != ZR_FALSE),
      mPreAllocLen(preAllocLen) {}

int VemoAtom::addTrackInfo(const zrMP4_TRACK_INFO_S* info) {
  if (info == nullptr) {
    LogNullArgument("addTrackInfo");
    return -1;
  }
  if (full()) return ZR_FAIL(-1, "track reach max number %d\n", static_cast<int>(MAX_TRACKS));
  auto track = MakeOrNull<TrackCfgS>();
  if (track == nullptr) return ZR_FAIL(-1, "vemoatom track malloc fail\n");
  if (memcpy_s(&track->info, sizeof(track->info), info, sizeof(*info)) != 0) {
    return ZR_FAIL(-1, "copy track[%u] info error\n", mTrackCount);
  }
  const std::size_t nameLength = strnlen(track->info.aszHdlrName, sizeof(track->info.aszHdlrName) - 1);
  track->recordLength = FixedLength(info->enTrackType) + static_cast<ZR_U32>(nameLength);
  IncreaseSize(track->recordLength);
  track->trackIndex = mTrackCount + 1;
  mTracks[mTrackCount++] = std::move(track);
  return 0;
}

const std::unique_ptr<TrackCfgS>* VemoAtom::getTrackInfo(ZR_U32* count) const {
  if (count == nullptr) {
    LogNullArgument("getTrackInfo");
    return nullptr;
  }
  *count = mTrackCount;
  return mTracks;
}

const TrackCfgS* VemoAtom::getTrackInfoByIndex(ZR_U32 index) const {
  if (index >= MAX_TRACKS) return ZR_FAIL(nullptr, "getTrackInfo fail, index:%u\n", index);
  return mTracks[index].get();
}

bool VemoAtom::head(FieldIo& io) {
  return io.be32(mBackupUnit) && io.byte(mUseCo64) && io.byte(mConstantRate) && io.be32(mPreAllocLen) &&
         io.be32(mFormatWord) && io.be32(mTrackCount);
}

int VemoAtom::writeData(IOStream* stream) {
  FieldIo io = FieldIo::Writing(stream);
  if (!head(io)) return -1;
  for (const auto& track : mTracks) {
    if (track != nullptr && !WriteRecord(io, *track)) return ZR_FAIL(-1, "write trackConfig fail\n");
  }
  return 0;
}

int VemoAtom::readData(IOStream* stream) {
  FieldIo io = FieldIo::Reading(stream);
  mComplete = head(io) && readRecords(io) == 0;
  if (mComplete) return 0;
  for (auto& track : mTracks) track.reset();
  mTrackCount = 0;
  return -1;
}

int VemoAtom::readRecords(FieldIo& io) {
  if (mTrackCount > MAX_TRACKS) {
    return ZR_FAIL(-1, "traknum:%u, max:%d\n", mTrackCount, static_cast<int>(MAX_TRACKS));
  }
  for (ZR_U32 i = 0; i < mTrackCount; ++i) {
    mTracks[i] = MakeOrNull<TrackCfgS>();
    if (mTracks[i] == nullptr) return ZR_FAIL(-1, "malloc trackConfig fail\n");
    if (memset_s(mTracks[i].get(), sizeof(TrackCfgS), 0, sizeof(TrackCfgS)) != 0) {
      return ZR_FAIL(-1, "memset_s trackConfig fail\n");
    }
    const ZR_U64 roomInBox = header().RemainingInBox(io.stream());
    if (!ReadRecord(io, *mTracks[i], roomInBox)) return ZR_FAIL(-1, "read trackConfig fail\n");
  }
  return 0;
}

bool VemoAtom::credible() const {
  ZR_U64 length = kEmptySize;
  for (ZR_U32 i = 0; i < mTrackCount; ++i) {
    if (!IsWhole(*mTracks[i], i + 1)) return false;
    length += mTracks[i]->recordLength;
  }
  return length == header().size;
}

int VemoAtom::Dump(IOStream*, ZR_U32 depth) {
  printf("+%s%s backupUnit=%u, preAllocLen=%u, trackCount=%u\n", std::string(depth, '-').c_str(), type().c_str(),
         mBackupUnit, mPreAllocLen, mTrackCount);
  return 0;
}

}  // namespace zrmp4
