#include <cstdlib>
#include <cstring>
#include <mutex>

#include "api/call_guard.h"
#include "base/annex_k.h"
#include "zr_mp4.h"

namespace zrmp4 {
namespace {

constexpr ZR_U32 kInternalFailure = 0xFFFFFFFF;

// The muxers' records: a circular list behind a head that is no record itself.
struct Records {
  constexpr Records() : head{} { head.next = head.prev = &head; }

  std::mutex lock;  // the list, the count and the two maxima in every record
  zrMP4_PROC_MUXER_S head;
  ZR_S32 count = 0;
};

Records& AllRecords() {
  static Records records;
  return records;
}

template <typename Record>
void LinkBefore(Record* next, Record* record) {
  record->next = next;
  record->prev = next->prev;
  record->prev->next = record;
  next->prev = record;
}

template <typename Record>
bool IsLinked(const Record& head, const Record* record) {
  for (const Record* at = head.next; at != &head; at = at->next) {
    if (at == record) return true;
  }
  return false;
}

// The records belong to C programs: malloc and free.
template <typename Record>
Record* NewRecord() {
  return static_cast<Record*>(std::malloc(sizeof(Record)));
}

// Raises one of the maxima of the muxer with this name.
ZR_U32 Raise(const char* name, ZR_U64 zrMP4_PROC_MUXER_S::*maximum, ZR_U64 value) {
  if (name == nullptr) return 0;
  Records& records = AllRecords();
  const std::lock_guard<std::mutex> guard(records.lock);
  for (zrMP4_PROC_MUXER_S* muxer = records.head.next; muxer != &records.head; muxer = muxer->next) {
    if (std::strcmp(muxer->name, name) != 0) continue;
    if (value > muxer->*maximum) muxer->*maximum = value;
    break;
  }
  return 0;
}

ZR_U32 Add(zrMP4_PROC_MUXER_S** out, const zrMP4_CONFIG_S& config) {
  auto* muxer = NewRecord<zrMP4_PROC_MUXER_S>();
  if (muxer == nullptr) return ZR_FAIL(kInternalFailure, "MP4_PROC_Add fail \n");
  if (memset_s(muxer, sizeof(*muxer), 0, sizeof(*muxer)) != 0) {
    std::free(muxer);
    return ZR_FAIL(kInternalFailure, "MP4_PROC_Add memset_s proc muxer failed\n");
  }
  // A name without an end is cut, as the buffer is the same size.
  std::memcpy(muxer->name, config.aszFileName, sizeof(muxer->name) - 1);
  if (config.enConfigType == ZR_MP4_CONFIG_MUXER) muxer->preAllocUnit = config.stMuxerConfig.u32PreAllocUnit;
  muxer->tracks.next = muxer->tracks.prev = &muxer->tracks;

  Records& records = AllRecords();
  const std::lock_guard<std::mutex> guard(records.lock);
  LinkBefore(records.head.next, muxer);
  ++records.count;
  *out = muxer;
  return 0;
}

ZR_U32 Remove(zrMP4_PROC_MUXER_S* muxer) {
  Records& records = AllRecords();
  const std::lock_guard<std::mutex> guard(records.lock);
  if (!IsLinked(records.head, muxer)) return 0;
  muxer->prev->next = muxer->next;
  muxer->next->prev = muxer->prev;
  --records.count;
  std::free(muxer);
  return 0;
}

// What the muxer shows of the last track of each kind.
void Describe(zrMP4_PROC_MUXER_S* muxer, zrMP4_PROC_TRACK_S* track, const zrMP4_TRACK_INFO_S& info) {
  track->trackType = info.enTrackType;
  switch (info.enTrackType) {
    case ZR_MP4_TRACK_VIDEO:
      track->codecId = info.stVideoInfo.enCodecID;
      muxer->videoWidth = info.stVideoInfo.u32Width;
      muxer->videoHeight = info.stVideoInfo.u32Height;
      muxer->videoSpeed = info.fSpeed;
      break;
    case ZR_MP4_TRACK_AUDIO:
      track->codecId = info.stAudioInfo.enCodecID;
      muxer->audioSampleRate = info.stAudioInfo.u32SampleRate;
      muxer->audioSamplesPerFrame = info.stAudioInfo.u32SamplePerFrame;
      break;
    case ZR_MP4_TRACK_META:
      track->codecId = info.stMetaInfo.enCodecID;
      break;
  }
}

}  // namespace
}  // namespace zrmp4

ZR_U32 MP4_PROC_Init(void) noexcept { return 0; }

ZR_U32 MP4_PROC_DelInit(void) noexcept { return 0; }

ZR_U32 MP4_PROC_Add(zrMP4_PROC_MUXER_S** ppstMuxer, const zrMP4_CONFIG_S* pstMP4Cfg) noexcept {
  if (ppstMuxer == nullptr || pstMP4Cfg == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return zrmp4::CallGuarded([&] { return zrmp4::Add(ppstMuxer, *pstMP4Cfg); });
}

ZR_U32 MP4_PROC_Remove(zrMP4_PROC_MUXER_S* pstMuxer) noexcept {
  if (pstMuxer == nullptr) return ZR_ERR_MP4_NULL_PTR;
  return zrmp4::CallGuarded([&] { return zrmp4::Remove(pstMuxer); });
}

ZR_U32 MP4_PROC_CreateTrack(zrMP4_PROC_MUXER_S* pstMuxer, zrMP4_PROC_TRACK_S** ppstTrack,
                            const zrMP4_TRACK_INFO_S* pstTrackInfo) noexcept {
  if (pstMuxer == nullptr || ppstTrack == nullptr || pstTrackInfo == nullptr) return ZR_ERR_MP4_NULL_PTR;
  auto* track = zrmp4::NewRecord<zrMP4_PROC_TRACK_S>();
  if (track == nullptr) return ZR_FAIL(zrmp4::kInternalFailure, "MP4_PROC_CreateTrack fail \n");
  if (zrmp4::memset_s(track, sizeof(*track), 0, sizeof(*track)) != 0) {
    std::free(track);
    return ZR_FAIL(zrmp4::kInternalFailure, "MP4_PROC_CreateTrack memset_s track fail \n");
  }
  track->seq = ++pstMuxer->trackSeq;
  zrmp4::Describe(pstMuxer, track, *pstTrackInfo);
  zrmp4::LinkBefore(&pstMuxer->tracks, track);
  *ppstTrack = track;
  return 0;
}

ZR_U32 MP4_PROC_DestroyTrack(zrMP4_PROC_MUXER_S* pstMuxer) noexcept {
  if (pstMuxer == nullptr) return ZR_ERR_MP4_NULL_PTR;
  zrMP4_PROC_TRACK_S& head = pstMuxer->tracks;
  while (head.next != &head) {
    zrMP4_PROC_TRACK_S* track = head.next;
    head.next = track->next;
    std::free(track);
  }
  head.prev = &head;
  return 0;
}

ZR_U32 MP4_PROC_WriteFrame(zrMP4_PROC_MUXER_S* pstMuxer, zrMP4_PROC_TRACK_S* pstTrack, ZR_U64 u64Pts,
                           ZR_U32 u32FrameSize, ZR_U64 u64Value) noexcept {
  if (pstMuxer == nullptr) return ZR_ERR_MP4_NULL_PTR;
  pstMuxer->lastFrameSize = u32FrameSize;
  pstMuxer->lastFrameValue = u64Value;
  if (!zrmp4::IsLinked(pstMuxer->tracks, pstTrack)) return 0;
  if (pstTrack->firstPts == 0) pstTrack->firstPts = u64Pts;
  ++pstTrack->frameCount;
  return 0;
}

ZR_U32 MP4_PROC_UpdateWriteTime(const char* pszName, ZR_U64 u64Time) noexcept {
  return zrmp4::CallGuarded([&] { return zrmp4::Raise(pszName, &zrMP4_PROC_MUXER_S::maxWriteTime, u64Time); });
}

ZR_U32 MP4_PROC_UpdateAllocTime(const char* pszName, ZR_U64 u64Time) noexcept {
  return zrmp4::CallGuarded([&] { return zrmp4::Raise(pszName, &zrMP4_PROC_MUXER_S::maxAllocTime, u64Time); });
}
